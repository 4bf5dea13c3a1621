#include "encrypted_file.h"

#include <openssl/evp.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

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
    to.resize(static_cast<size_t>(done + last));
    return true;
}

[[noreturn]] void ThrowErrno(const std::string& path) {
    throw UsageError(path + ": " + std::generic_category().message(errno));
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

void ReplaceFile(const std::string& path, const std::string& bytes) {
    struct stat status {};
    std::string beside = path + ".XXXXXX";
    const int fd = stat(path.c_str(), &status) == 0 ? mkstemp(beside.data()) : -1;
    if (fd < 0) {
        ThrowErrno(path);
    }
    const bool isWritten = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
                           fchmod(fd, status.st_mode & 07777) == 0 &&
                           fchown(fd, status.st_uid, status.st_gid) == 0 && fsync(fd) == 0;
    const int error = errno;
    close(fd);
    errno = error;
    if (!isWritten || rename(beside.c_str(), path.c_str()) != 0) {
        const int reason = errno;
        unlink(beside.c_str());
        errno = reason;
        ThrowErrno(path);
    }
}

} // namespace appcfg::cli
