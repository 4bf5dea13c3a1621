#include "app_cfg_json_mgr.h"

#include "acm_json_configuration.h"
#include "app_cfg_log.h"

namespace SystemServer {

AppCfgJsonMgr::AppCfgJsonMgr(const std::string& path, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) :
    AppCfgMgr(path, cryptoMgr) {
    Own(new AcmJsonConfiguration(path));
}

std::shared_ptr<AppCfgMgr> AppCfgJsonMgr::DeepClone(const std::string& path) {
    return std::make_shared<AppCfgJsonMgr>(path, CloneCryptoMgr(path));
}

void AppCfgJsonMgr::LogRawRefused() const {
    ACM_LOG(ACM_ERROR, "SetRawString fail.");
}

} // namespace SystemServer
