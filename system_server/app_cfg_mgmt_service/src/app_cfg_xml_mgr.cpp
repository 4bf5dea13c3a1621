#include "app_cfg_xml_mgr.h"

#include "app_cfg_log.h"

namespace SystemServer {

void AppCfgXmlMgrFaults::DocumentMissing() {
    ACM_LOG(ACM_ERROR, "dynamic_cast AcmXmlConfiguration fail.");
}

// One text for reading and writing; logs are searched for it as it is.
void AppCfgXmlMgrFaults::RawRefused() {
    ACM_LOG(ACM_ERROR, "SetRawString fail.");
}

AppCfgXmlMgr::AppCfgXmlMgr(const std::string& path, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) :
    AppCfgDocumentMgr(path, cryptoMgr) {
    if (cryptoMgr) {
        const std::shared_ptr<std::istream> stream = cryptoMgr->GetDecryptStream();
        m_config = new AcmXmlConfiguration(*stream);
    } else {
        m_config = new AcmXmlConfiguration(path);
    }
}

AppCfgXmlMgr::~AppCfgXmlMgr() = default;

std::shared_ptr<AppCfgMgr> AppCfgXmlMgr::DeepClone(const std::string& path) {
    return std::make_shared<AppCfgXmlMgr>(path, CloneCryptoMgr(path));
}

} // namespace SystemServer
