#ifndef TESTS_SERVICE_ITEM_ENCRYPTION_H
#define TESTS_SERVICE_ITEM_ENCRYPTION_H

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include "app_cfg_crypto_mgr_factory.h"
#include "app_cfg_wire.h"

namespace ServiceTest {

// Keys are named by a word that their bytes repeat; the IV counts up.
inline SystemServer::AppCfgCryptoParam Parameters(const std::string& key) {
    SystemServer::AppCfgCryptoParam param{};
    for (size_t at = 0; at < sizeof param.key; ++at) {
        param.key[at] = static_cast<uint8_t>(key[at % key.size()]);
    }
    for (size_t at = 0; at < sizeof param.iv; ++at) {
        param.iv[at] = static_cast<uint8_t>(at);
    }
    return param;
}

// For a create and for a key change; an empty key means plain files.
template <typename Request>
void EncryptWith(Request& request, const std::string& key) {
    if (!key.empty()) {
        request.cryptoType = SystemServer::ConfigCryptoType::AES_256_CBC;
        request.cryptoParam = Parameters(key);
    }
}

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

} // namespace ServiceTest

#endif
