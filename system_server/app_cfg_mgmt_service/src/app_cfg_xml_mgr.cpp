#include "app_cfg_xml_mgr.h"

#include "acm_xml_configuration.h"
#include "app_cfg_log.h"

namespace SystemServer {

AppCfgXmlMgr::AppCfgXmlMgr(const std::string& path, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) :
    AppCfgMgr(path, cryptoMgr) {
    Own(cryptoMgr ? new AcmXmlConfiguration(*cryptoMgr->GetDecryptStream()) : new AcmXmlConfiguration(path));
}

std::shared_ptr<AppCfgMgr> AppCfgXmlMgr::DeepClone(const std::string& path) {
    return std::make_shared<AppCfgXmlMgr>(path, CloneCryptoMgr(path));
}

void AppCfgXmlMgr::LogRawRefused() const {
    ACM_LOG(ACM_ERROR, "SetRawString fail.");
}

} // namespace SystemServer
