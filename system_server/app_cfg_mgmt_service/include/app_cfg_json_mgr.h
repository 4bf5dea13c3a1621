#ifndef APP_CFG_JSON_MGR_H
#define APP_CFG_JSON_MGR_H

#include <memory>
#include <string>

#include "app_cfg_mgr.h"

namespace SystemServer {

// A client's JSON file. Owned, called and locked as its base says.
class AppCfgJsonMgr final : public AppCfgMgr {
public:
    // Loads the file as plain JSON also when it is to be encrypted: an encrypted JSON file is readable only
    // through Restore(), and clients of such items rely on a plain file at creation.
    AppCfgJsonMgr(const std::string& path, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr);

    std::shared_ptr<AppCfgMgr> DeepClone(const std::string& path) override;

protected:
    void LogRawRefused() const override;
};

} // namespace SystemServer

#endif
