#ifndef APP_CFG_CRYPTO_MGR_H
#define APP_CFG_CRYPTO_MGR_H

#include <istream>
#include <memory>
#include <string>

namespace SystemServer {

// The encryption of one item's files. Owned by the item's configuration manager; a manager cloned for another
// file has a copy.
// Threads: Encrypt and GetDecryptStream only read the fields, so any threads may call them at once.
class AppCfgCryptoMgr {
public:
    AppCfgCryptoMgr(const std::string& filePath, const std::string& key);
    AppCfgCryptoMgr(const AppCfgCryptoMgr&) = delete;
    AppCfgCryptoMgr& operator=(const AppCfgCryptoMgr&) = delete;
    virtual ~AppCfgCryptoMgr();

    // The decrypted content of the file at m_filePath. Throws a Poco::Exception when it cannot be decrypted.
    virtual std::shared_ptr<std::istream> GetDecryptStream() = 0;

    // Replaces cipher with the encrypted bytes of plain.
    virtual void Encrypt(const std::string& plain, std::string& cipher) = 0;

    // A manager of its own with the same path and parameters.
    virtual std::shared_ptr<AppCfgCryptoMgr> Clone() = 0;

    std::string m_filePath;

protected:
    std::string m_key;
};

} // namespace SystemServer

#endif
