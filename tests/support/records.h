// Requests' records and replies' contents in bytes.
#ifndef TESTS_SUPPORT_RECORDS_H
#define TESTS_SUPPORT_RECORDS_H

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "app_cfg_wire.h"

namespace Support {

// Fills a text field; a text of the field's size leaves no room for a NUL.
template <size_t Size>
void Put(char (&field)[Size], const std::string& text) {
    std::memset(field, 0, Size);
    std::memcpy(field, text.data(), std::min(Size, text.size()));
}

template <typename Record>
std::string BytesOf(const Record& record) {
    return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

inline SystemServer::AppCfgHndl Handle(const std::string& owner, const std::string& name,
                                       uint32_t index = 0) {
    SystemServer::AppCfgHndl handle{};
    Put(handle.ownerName, owner);
    Put(handle.cfgName, name);
    handle.cfgIndex = index;
    return handle;
}

inline std::string DataRecord(const SystemServer::AppCfgHndl& handle, const std::string& query) {
    SystemServer::AppCfgDataReq request{handle, {}};
    Put(request.query, query);
    return BytesOf(request);
}

inline std::string RawRecord(const SystemServer::AppCfgHndl& handle, const std::string& key,
                             uint32_t dataLength = 0) {
    SystemServer::AppCfgRawDataReq request{handle, {}, dataLength};
    Put(request.query, key);
    return BytesOf(request);
}

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

// The values of a reply, nothing when their lengths do not add up.
inline std::optional<std::vector<std::string>> Values(const std::string& content) {
    std::vector<std::string> values;
    size_t at = 0;
    const auto word = [&] {
        uint32_t number = UINT32_MAX;
        std::memcpy(&number, content.data() + at, std::min(sizeof number, content.size() - at));
        at = std::min(at + sizeof number, content.size());
        return number;
    };
    for (uint32_t left = word(); left > 0; --left) {
        const uint32_t length = word();
        if (length > content.size() - at) {
            return std::nullopt;
        }
        values.push_back(content.substr(at, length));
        at += length;
    }
    return at == content.size() ? std::optional(values) : std::nullopt;
}

// The fragment of a reply, nothing when its length is not its own or it does not end with its NUL.
inline std::optional<std::string> Fragment(const std::string& content) {
    constexpr size_t HEAD = sizeof(SystemServer::AppCfgRawDataReq);
    uint32_t length = 0;
    std::memcpy(&length, content.data() + HEAD - sizeof length, content.size() < HEAD ? 0 : sizeof length);
    return length > 0 && content.size() == HEAD + length && content.back() == '\0'
               ? std::optional(content.substr(HEAD, length - 1))
               : std::nullopt;
}

} // namespace Support

#endif
