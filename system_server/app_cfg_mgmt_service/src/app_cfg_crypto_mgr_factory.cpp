#include "app_cfg_crypto_mgr_factory.h"

#include "app_cfg_aes256_cbc_crypto_mgr.h"
#include "app_cfg_log.h"

namespace SystemServer {

namespace {

std::string Bytes(const uint8_t* data, size_t size) {
    return std::string(data, data + size);
}

} // namespace

std::shared_ptr<AppCfgCryptoMgr>
AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(ConfigCryptoType type, const std::string& filePath,
                                              const AppCfgCryptoParam& param) {
    if (type != ConfigCryptoType::AES_256_CBC) {
        ACM_LOG(ACM_ERROR, "not support crypto mgr[%d]", static_cast<int>(type));
        return nullptr;
    }
    auto cryptoMgr = std::make_shared<AppCfgAes256CbcCryptoMgr>(filePath, Bytes(param.key, sizeof param.key));
    cryptoMgr->m_iv = Bytes(param.iv, sizeof param.iv);
    return cryptoMgr;
}

} // namespace SystemServer
