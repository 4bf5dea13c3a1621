#include "app_cfg_mgr_factory.h"

#include <exception>

#include "acm_file.h"
#include "acm_limit.h"
#include "app_cfg_fault.h"
#include "app_cfg_ini_mgr.h"
#include "app_cfg_json_mgr.h"
#include "app_cfg_xml_mgr.h"

namespace SystemServer {

namespace {

std::shared_ptr<AppCfgMgr> MakeManager(ConfigStorageType type, const std::string& path,
                                       const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) {
    switch (type) {
    case ConfigStorageType::INI:
        return std::make_shared<AppCfgIniMgr>(path, cryptoMgr);
    case ConfigStorageType::XML:
        return std::make_shared<AppCfgXmlMgr>(path, cryptoMgr);
    case ConfigStorageType::JSON:
        return std::make_shared<AppCfgJsonMgr>(path, cryptoMgr);
    default:
        return nullptr;
    }
}

} // namespace

std::shared_ptr<AppCfgMgr>
AppCfgMgrFactory::CreateAppCfgMgr(ConfigStorageType type, const std::string& path,
                                  const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) {
    try {
        return MakeManager(type, path, cryptoMgr);
    } catch (const AcmLimitException& fault) {
        if (fault.message().find(path) != std::string::npos) {
            throw;
        }
        throw AcmLimitException(fault.message(), path);
    } catch (const std::exception& fault) {
        if (IsShortage(fault)) {
            throw;
        }
        LogCurrentFault(LOG_FILE, __LINE__);
        return nullptr;
    }
}

} // namespace SystemServer
