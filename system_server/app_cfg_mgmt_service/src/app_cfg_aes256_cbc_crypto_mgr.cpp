#include "app_cfg_aes256_cbc_crypto_mgr.h"

#include <Poco/Crypto/CipherFactory.h>
#include <Poco/Crypto/CipherKey.h>
#include <Poco/Crypto/OpenSSLInitializer.h>
#include <Poco/Exception.h>

#include <new>
#include <openssl/evp.h>
#include <sstream>

#include "acm_file.h"
#include "app_cfg_fault.h"

namespace SystemServer {

namespace {

constexpr char CIPHER_NAME[] = "aes-256-cbc";
constexpr size_t BLOCK_SIZE = 16;
constexpr char DEFAULT_IV_BYTE = '0';

size_t CipherSize(size_t plainSize) {
    return BLOCK_SIZE * (plainSize / BLOCK_SIZE + 1);
}

// A file that cannot be read counts as empty, and so as one that cannot be decrypted. A shortage, or a path
// that is no regular file, is thrown on instead: it says nothing about the content.
std::string ReadCipherText(const std::string& path) {
    RequireRegularFile(path);
    try {
        return ReadRegularFile(path);
    } catch (const Poco::FileException& fault) {
        if (IsShortage(fault)) {
            throw;
        }
        LogFencedFault(LOG_FILE, __LINE__);
        return std::string();
    }
}

// Without memory the library goes on with a null context and crashes. So a context like its own is made and
// freed right before: a shortage shows here, unless another thread takes the memory in between.
void RequireContext() {
    static constexpr unsigned char KEY[32] = {};
    EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
    const bool isReady =
        context != nullptr && EVP_CipherInit(context, EVP_aes_256_cbc(), KEY, nullptr, 1) == 1;
    EVP_CIPHER_CTX_free(context);
    if (!isReady) {
        throw std::bad_alloc();
    }
}

} // namespace

AppCfgAes256CbcCryptoMgr::AppCfgAes256CbcCryptoMgr(const std::string& filePath, const std::string& key) :
    AppCfgCryptoMgr(filePath, key), m_iv(BLOCK_SIZE, DEFAULT_IV_BYTE) {}

AppCfgAes256CbcCryptoMgr::~AppCfgAes256CbcCryptoMgr() = default;

Poco::Crypto::Cipher::Ptr AppCfgAes256CbcCryptoMgr::CreateCipher() const {
    // One cipher user is kept for good: otherwise the library would free its locks with the last cipher and
    // make them anew with the next one, which is a race between threads.
    static const Poco::Crypto::OpenSSLInitializer library;
    // As byte vectors: from strings the library would derive another key.
    const Poco::Crypto::CipherKey::ByteVec key(m_key.begin(), m_key.end());
    const Poco::Crypto::CipherKey::ByteVec iv(m_iv.begin(), m_iv.end());
    Poco::Crypto::Cipher::Ptr cipher(Poco::Crypto::CipherFactory::defaultFactory().createCipher(
        Poco::Crypto::CipherKey(CIPHER_NAME, key, iv)));
    if (cipher.isNull()) {
        throw Poco::NullPointerException("no cipher", CIPHER_NAME);
    }
    return cipher;
}

std::shared_ptr<std::istream> AppCfgAes256CbcCryptoMgr::GetDecryptStream() {
    const std::string cipherText = ReadCipherText(m_filePath);
    Poco::Crypto::Cipher::Ptr cipher = CreateCipher();
    RequireContext();
    const std::string plain = cipher->decryptString(cipherText, Poco::Crypto::Cipher::ENC_NONE);
    return std::make_shared<std::istringstream>(plain);
}

void AppCfgAes256CbcCryptoMgr::Encrypt(const std::string& plain, std::string& cipher) {
    Poco::Crypto::Cipher::Ptr encryption = CreateCipher();
    RequireContext();
    cipher = encryption->encryptString(plain, Poco::Crypto::Cipher::ENC_NONE);
    // encryptString hides faults of the stream that it uses: a text that was cut must not reach the file.
    if (cipher.size() != CipherSize(plain.size())) {
        throw Poco::IOException("encryption incomplete", m_filePath);
    }
}

std::shared_ptr<AppCfgCryptoMgr> AppCfgAes256CbcCryptoMgr::Clone() {
    auto clone = std::make_shared<AppCfgAes256CbcCryptoMgr>(m_filePath, m_key);
    clone->m_iv = m_iv;
    return clone;
}

} // namespace SystemServer
