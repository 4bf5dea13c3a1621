#ifndef APP_CFG_JSON_MGR_H
#define APP_CFG_JSON_MGR_H

#include "acm_json_configuration.h"
#include "app_cfg_document_mgr.h"

namespace SystemServer {

struct AppCfgJsonMgrFaults {
    static void DocumentMissing();
    static void RawRefused();
};

// A client's JSON file. Owned, called and locked as its base says.
class AppCfgJsonMgr final : public AppCfgDocumentMgr<AcmJsonConfiguration, AppCfgJsonMgrFaults> {
public:
    // Loads the file as plain JSON also when it is to be encrypted: an encrypted JSON file is readable only
    // through Restore(), and clients of such items rely on a plain file at creation.
    AppCfgJsonMgr(const std::string& path, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr);
    ~AppCfgJsonMgr() override;

    std::shared_ptr<AppCfgMgr> DeepClone(const std::string& path) override;
};

} // namespace SystemServer

#endif
