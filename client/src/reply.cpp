#include "reply.h"

#include <cstdint>
#include <cstring>

#include "app_cfg_wire.h"
#include "appcfg/error.h"

namespace appcfg {
namespace {

[[noreturn]] void ThrowMalformed(const char* why) {
    throw ConnectionError(std::string("the service sent a malformed reply: ") + why);
}

// Reads forward through the content; never past its end.
class Reader {
public:
    Reader(const void* content, size_t size) : m_at(static_cast<const char*>(content)), m_left(size) {}

    uint32_t Word() {
        uint32_t word = 0;
        std::memcpy(&word, Take(sizeof(word)), sizeof(word));
        return word;
    }
    std::string Text(uint32_t length) { return std::string(Take(length), length); }
    size_t Left() const { return m_left; }

private:
    const char* Take(size_t count) {
        if (count > m_left) {
            ThrowMalformed("a length passes its end");
        }
        const char* start = m_at;
        m_at += count;
        m_left -= count;
        return start;
    }

    const char* m_at;
    size_t m_left;
};

} // namespace

std::vector<std::string> ParseValues(const void* content, size_t size, size_t expected) {
    Reader reader(content, size);
    if (reader.Word() != expected) {
        ThrowMalformed("the number of values is not the number of keys");
    }
    std::vector<std::string> values;
    values.reserve(expected);
    while (values.size() < expected) {
        const uint32_t length = reader.Word();
        values.push_back(reader.Text(length));
    }
    if (reader.Left() != 0) {
        ThrowMalformed("bytes follow its last value");
    }
    return values;
}

std::string ParseFragment(const void* content, size_t size) {
    constexpr size_t HEAD = sizeof(SystemServer::AppCfgRawDataReq);
    const char* bytes = static_cast<const char*>(content);
    if (size <= HEAD) {
        ThrowMalformed("a fragment is shorter than its head");
    }
    uint32_t dataLen = 0;
    std::memcpy(&dataLen, bytes + offsetof(SystemServer::AppCfgRawDataReq, dataLen), sizeof(dataLen));
    if (dataLen != size - HEAD || bytes[size - 1] != '\0') {
        ThrowMalformed("a fragment's length is not its size");
    }
    return std::string(bytes + HEAD, dataLen - 1);
}

} // namespace appcfg
