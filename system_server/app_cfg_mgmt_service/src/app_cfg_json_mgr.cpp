#include "app_cfg_json_mgr.h"

#include "app_cfg_log.h"

namespace SystemServer {

void AppCfgJsonMgrFaults::DocumentMissing() {
    ACM_LOG(ACM_ERROR, "dynamic_cast AcmJsonConfiguration fail.");
}

// One text for reading and writing; logs are searched for it as it is.
void AppCfgJsonMgrFaults::RawRefused() {
    ACM_LOG(ACM_ERROR, "SetRawString fail.");
}

AppCfgJsonMgr::AppCfgJsonMgr(const std::string& path, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) :
    AppCfgDocumentMgr(path, cryptoMgr) {
    m_config = new AcmJsonConfiguration(path);
}

AppCfgJsonMgr::~AppCfgJsonMgr() = default;

std::shared_ptr<AppCfgMgr> AppCfgJsonMgr::DeepClone(const std::string& path) {
    return std::make_shared<AppCfgJsonMgr>(path, CloneCryptoMgr(path));
}

} // namespace SystemServer
