#include "appcfg/item_description.h"

#include <cstring>

#include "appcfg/error.h"

namespace appcfg {
namespace {

// -1 for a character that is no hexadecimal digit.
int DigitValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

} // namespace

EncryptionKey::~EncryptionKey() {
    explicit_bzero(key.data(), key.size());
    explicit_bzero(iv.data(), iv.size());
}

EncryptionKey EncryptionKey::FromHex(std::string_view text) {
    EncryptionKey result;
    const size_t wanted = 2 * (result.key.size() + result.iv.size());
    size_t digits = 0;
    for (const char c : text) {
        if (IsBlank(c)) {
            continue;
        }
        const int value = DigitValue(c);
        if (value < 0 || digits == wanted) {
            throw InvalidArgument("a key is 96 hexadecimal digits: 64 of key, then 32 of IV");
        }
        const size_t byte = digits / 2;
        uint8_t& target = byte < result.key.size() ? result.key[byte] : result.iv[byte - result.key.size()];
        target = static_cast<uint8_t>((target << 4) | value);
        ++digits;
    }
    if (digits != wanted) {
        throw InvalidArgument("a key is 96 hexadecimal digits (64 of key, then 32 of IV), not " +
                              std::to_string(digits));
    }
    return result;
}

} // namespace appcfg
