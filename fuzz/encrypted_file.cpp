// Encrypted files: bytes are refused or decrypt to the text that encrypts to them again, and any text comes
// back. Input: a letter ("p": the rest is a text to encrypt first) and the file's bytes.
#include <iterator>

#include "app_cfg_crypto_mgr_factory.h"
#include "app_cfg_mgr_factory.h"
#include "fuzz_documents.h"

using namespace SystemServer;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const auto crypto = AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(
        ConfigCryptoType::AES_256_CBC, Fuzz::PathOf("file"), AppCfgCryptoParam{});
    const std::string bytes = Fuzz::Parts(data + 1, size - 1, 1)[0];
    std::string file = bytes;
    if (data[0] == 'p') {
        crypto->Encrypt(bytes, file);
    }
    Fuzz::WriteFile("file", file);
    std::string text;
    const bool decrypts = Fuzz::Accepts([&] {
        text = std::string(std::istreambuf_iterator<char>(*crypto->GetDecryptStream()), {});
        return true;
    });
    Fuzz::Check(data[0] != 'p' || (decrypts && text == bytes), "a text comes back");
    std::string again = file;
    if (decrypts) {
        crypto->Encrypt(text, again);
    }
    Fuzz::Check(again == file, "what decrypts encrypts to the same bytes");
    for (const auto type : {ConfigStorageType::INI, ConfigStorageType::XML}) {
        const bool loads = Fuzz::Accepts([&, type = type] {
            return AppCfgMgrFactory::CreateAppCfgMgr(type, Fuzz::PathOf("file"), crypto) != nullptr;
        });
        Fuzz::Check(decrypts || !loads, "only what decrypts is loaded");
    }
    return 0;
}
