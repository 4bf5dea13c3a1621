#ifndef APP_CFG_XML_MGR_H
#define APP_CFG_XML_MGR_H

#include "acm_xml_configuration.h"
#include "app_cfg_document_mgr.h"

namespace SystemServer {

struct AppCfgXmlMgrFaults {
    static void DocumentMissing();
    static void RawRefused();
};

// A client's XML file. Owned, called and locked as its base says.
class AppCfgXmlMgr final : public AppCfgDocumentMgr<AcmXmlConfiguration, AppCfgXmlMgrFaults> {
public:
    // Loads the file, decrypting it when it is encrypted.
    AppCfgXmlMgr(const std::string& path, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr);
    ~AppCfgXmlMgr() override;

    std::shared_ptr<AppCfgMgr> DeepClone(const std::string& path) override;
};

} // namespace SystemServer

#endif
