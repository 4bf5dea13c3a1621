#ifndef APP_CFG_MGR_FACTORY_H
#define APP_CFG_MGR_FACTORY_H

#include <memory>
#include <string>

#include "app_cfg_mgr.h"
#include "app_cfg_types.h"

namespace SystemServer {

// Makes the manager of a storage type and loads its file.
class AppCfgMgrFactory {
public:
    // Empty for an unsupported type, and, with a log line, for a file that cannot be loaded. A shortage of
    // memory, threads or descriptors says nothing about the file and is thrown on, and so is
    // AcmLimitException, with the path in its message.
    static std::shared_ptr<AppCfgMgr> CreateAppCfgMgr(ConfigStorageType type, const std::string& path,
                                                      const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr);
};

} // namespace SystemServer

#endif
