#ifndef APP_CFG_CRYPTO_MGR_FACTORY_H
#define APP_CFG_CRYPTO_MGR_FACTORY_H

#include <memory>
#include <string>

#include "app_cfg_crypto_mgr.h"
#include "app_cfg_wire.h"

namespace SystemServer {

// Makes encryption managers from what a request carries.
class AppCfgCryptoMgrFactory {
public:
    // Empty, with a log line, for a type that is no encryption.
    static std::shared_ptr<AppCfgCryptoMgr>
    CreateAppCfgCryptoMgr(ConfigCryptoType type, const std::string& filePath, const AppCfgCryptoParam& param);
};

} // namespace SystemServer

#endif
