#ifndef APP_CFG_XML_MGR_H
#define APP_CFG_XML_MGR_H

#include <memory>
#include <string>

#include "app_cfg_mgr.h"

namespace SystemServer {

// A client's XML file. Owned, called and locked as its base says.
class AppCfgXmlMgr final : public AppCfgMgr {
public:
    // Loads the file, decrypting it when it is encrypted.
    AppCfgXmlMgr(const std::string& path, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr);

    std::shared_ptr<AppCfgMgr> DeepClone(const std::string& path) override;

protected:
    void LogRawRefused() const override;
};

} // namespace SystemServer

#endif
