#include "acm_text_bound.h"

#include <algorithm>
#include <streambuf>

namespace SystemServer {

namespace {

// Counts bytes and throws them away. Refuses more once there are too many, so that the writer's stream goes
// bad.
class CountingBuffer : public std::streambuf {
public:
    uint64_t Count() const { return m_count; }

protected:
    int_type overflow(int_type byte) override {
        ++m_count;
        return m_count > MAX_DOCUMENT_BYTES ? traits_type::eof() : traits_type::not_eof(byte);
    }

    std::streamsize xsputn(const char*, std::streamsize size) override {
        m_count += static_cast<uint64_t>(size);
        return m_count > MAX_DOCUMENT_BYTES ? 0 : size;
    }

private:
    uint64_t m_count = 0;
};

} // namespace

uint64_t MeasureText(const std::function<void(std::ostream&)>& write) {
    CountingBuffer buffer;
    std::ostream stream(&buffer);
    // An exception stops the writer, which would otherwise walk the rest of the document with a bad stream.
    stream.exceptions(std::ios::badbit);
    try {
        write(stream);
    } catch (const std::ios::failure&) {
        if (buffer.Count() <= MAX_DOCUMENT_BYTES) {
            throw;
        }
    }
    return buffer.Count();
}

uint64_t EscapedBytes(const std::string& text) {
    constexpr uint64_t MORE = 5; // a control character becomes \u00XX, a quotation mark &quot;
    const auto escaped = std::count_if(text.begin(), text.end(), [](unsigned char c) {
        return c < ' ' || c == '"' || c == '\\' || c == '&' || c == '<' || c == '>';
    });
    return text.size() + MORE * static_cast<uint64_t>(escaped);
}

uint64_t XmlTagBytes(const std::string& name) {
    return name.size() + sizeof "</>";
}

uint64_t XmlAttributeBytes(const std::string& name, const std::string& value) {
    return name.size() + EscapedBytes(value) + sizeof " =\"\"";
}

bool AcmTextBound::Reserve(uint64_t growth, const std::function<void(std::ostream&)>& write) {
    if (m_bytes + growth > MAX_DOCUMENT_BYTES) {
        m_bytes = MeasureText(write);
        if (m_bytes + growth + DOCUMENT_SLACK_BYTES > MAX_DOCUMENT_BYTES) {
            return false;
        }
    }
    m_bytes += growth;
    return true;
}

} // namespace SystemServer
