#include "records.h"

#include <algorithm>

#include "appcfg/error.h"

namespace appcfg {
namespace {

using namespace SystemServer;

// The field was zeroed, so that what follows the text is NUL.
template <size_t N>
void CopyText(char (&field)[N], const std::string& text, const char* what) {
    if (text.size() >= N) {
        throw InvalidArgument(std::string(what) + " '" + text + "' is longer than " + std::to_string(N - 1) +
                              " bytes");
    }
    if (text.find('\0') != std::string::npos) {
        throw InvalidArgument(std::string(what) + " holds a NUL");
    }
    std::copy(text.begin(), text.end(), field);
}

void CopyKey(AppCfgCryptoParam& param, const EncryptionKey& key) {
    std::copy(key.key.begin(), key.key.end(), param.key);
    std::copy(key.iv.begin(), key.iv.end(), param.iv);
}

} // namespace

AppCfgHndl MakeHndl(const Handle& handle) {
    AppCfgHndl hndl{};
    CopyText(hndl.ownerName, handle.Owner(), "the owner");
    CopyText(hndl.cfgName, handle.Name(), "the name");
    hndl.cfgIndex = handle.Index();
    return hndl;
}

SecretRecord<AppCfgCreateReq> MakeCreateReq(const ItemDescription& description) {
    if (description.path.empty()) {
        throw InvalidArgument("the item has no path");
    }
    SecretRecord<AppCfgCreateReq> result;
    AppCfgCreateReq& record = result.Get();
    record.hndl = MakeHndl(description.handle);
    record.storageType = description.storage;
    record.saveStrategy = description.saveStrategy;
    record.backupStrategy = description.backupStrategy;
    CopyText(record.cfgPath, description.path, "the path");
    CopyText(record.backupPath, description.backupPath, "the backup path");
    CopyText(record.defaultPath, description.defaultPath, "the default path");
    if (description.encryption) {
        record.cryptoType = ConfigCryptoType::AES_256_CBC;
        CopyKey(record.cryptoParam, *description.encryption);
    }
    return result;
}

AppCfgDataReq MakeDataReq(const Handle& handle, const std::string& query) {
    AppCfgDataReq record{};
    record.hndl = MakeHndl(handle);
    CopyText(record.query, query, "the query");
    return record;
}

AppCfgRawDataReq MakeRawDataReq(const Handle& handle, const std::string& key) {
    AppCfgRawDataReq record{};
    record.hndl = MakeHndl(handle);
    CopyText(record.query, key, "the key");
    return record;
}

SecretRecord<AppCfgCryptoUpdateReq> MakeCryptoUpdateReq(const Handle& handle, const EncryptionKey* key) {
    SecretRecord<AppCfgCryptoUpdateReq> result;
    AppCfgCryptoUpdateReq& record = result.Get();
    record.hndl = MakeHndl(handle);
    if (key != nullptr) {
        record.cryptoType = ConfigCryptoType::AES_256_CBC;
        CopyKey(record.cryptoParam, *key);
    }
    return result;
}

} // namespace appcfg
