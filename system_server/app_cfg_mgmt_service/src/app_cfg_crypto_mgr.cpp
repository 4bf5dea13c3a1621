#include "app_cfg_crypto_mgr.h"

namespace SystemServer {

AppCfgCryptoMgr::AppCfgCryptoMgr(const std::string& filePath, const std::string& key) :
    m_filePath(filePath), m_key(key) {}

AppCfgCryptoMgr::~AppCfgCryptoMgr() = default;

} // namespace SystemServer
