#ifndef APP_CFG_AES256_CBC_CRYPTO_MGR_H
#define APP_CFG_AES256_CBC_CRYPTO_MGR_H

#include <Poco/Crypto/Cipher.h>

#include "app_cfg_crypto_mgr.h"

namespace SystemServer {

// AES-256-CBC over the whole file with PKCS#7 padding, without a header: what `openssl enc -aes-256-cbc
// -K -iv` writes. Every call makes a cipher of its own, so that threads share nothing but the key.
class AppCfgAes256CbcCryptoMgr : public AppCfgCryptoMgr {
public:
    AppCfgAes256CbcCryptoMgr(const std::string& filePath, const std::string& key);
    ~AppCfgAes256CbcCryptoMgr() override;

    std::shared_ptr<std::istream> GetDecryptStream() override;
    void Encrypt(const std::string& plain, std::string& cipher) override;
    std::shared_ptr<AppCfgCryptoMgr> Clone() override;

    std::string m_iv;

private:
    Poco::Crypto::Cipher::Ptr CreateCipher() const;
};

} // namespace SystemServer

#endif
