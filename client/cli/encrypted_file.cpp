#include "encrypted_file.h"

#include <openssl/evp.h>

#include <memory>
#include <new>

#include "exit_status.h"

namespace appcfg::cli {
namespace {

constexpr size_t BLOCK = 16;

// Nothing when the last block is not what its key would make it.
bool Ciphers(bool encrypts, const std::string& from, const EncryptionKey& key, std::string& to) {
    const std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX*)> context(EVP_CIPHER_CTX_new(),
                                                                             EVP_CIPHER_CTX_free);
    to.resize(from.size() + BLOCK);
    auto* const out = reinterpret_cast<unsigned char*>(to.data());
    const auto* const in = reinterpret_cast<const unsigned char*>(from.data());
    int done = 0;
    int last = 0;
    if (context == nullptr || EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.key.data(),
                                                key.iv.data(), encrypts ? 1 : 0) != 1) {
        throw std::bad_alloc();
    }
    if (EVP_CipherUpdate(context.get(), out, &done, in, static_cast<int>(from.size())) != 1 ||
        EVP_CipherFinal_ex(context.get(), out + done, &last) != 1) {
        return false;
    }
    to.resize(static_cast<size_t>(done) + static_cast<size_t>(last));
    return true;
}

} // namespace

std::string Encrypted(const std::string& text, const EncryptionKey& key) {
    std::string bytes;
    if (!Ciphers(true, text, key, bytes)) {
        throw std::bad_alloc();
    }
    return bytes;
}

std::string Decrypted(const std::string& bytes, const EncryptionKey& key, const std::string& path) {
    std::string text;
    if (!Ciphers(false, bytes, key, text)) {
        throw UsageError(path + ": not in this key, or cut");
    }
    return text;
}

} // namespace appcfg::cli
