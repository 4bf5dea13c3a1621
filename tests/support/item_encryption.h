#ifndef TESTS_SUPPORT_ITEM_ENCRYPTION_H
#define TESTS_SUPPORT_ITEM_ENCRYPTION_H

#include <fstream>
#include <iterator>
#include <string>

#include "app_cfg_crypto_mgr_factory.h"
#include "records.h"

// Encrypted files, by the service's own encryption.
namespace Support {

inline void WritesEncrypted(const std::string& path, const std::string& text, const std::string& key) {
    std::string cipher;
    SystemServer::AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(SystemServer::ConfigCryptoType::AES_256_CBC,
                                                                path, Parameters(key))
        ->Encrypt(text, cipher);
    std::ofstream(path, std::ios::binary) << cipher;
}

// The text of a file in this key, or "(not in this key)".
inline std::string Decrypted(const std::string& path, const std::string& key) {
    try {
        const auto text = SystemServer::AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(
                              SystemServer::ConfigCryptoType::AES_256_CBC, path, Parameters(key))
                              ->GetDecryptStream();
        return std::string(std::istreambuf_iterator<char>(*text), {});
    } catch (const std::exception&) {
        return "(not in this key)";
    }
}

} // namespace Support

#endif
