#include "acm_utf8.h"

#include <Poco/UTF8Encoding.h>

namespace SystemServer {

bool IsUtf8(const std::string& text, bool (*accepts)(int character)) {
    const Poco::UTF8Encoding encoding;
    const auto* position = reinterpret_cast<const unsigned char*>(text.data());
    const auto* const end = position + text.size();
    while (position != end) {
        const int length = encoding.sequenceLength(position, 1);
        if (length < 1 || length > end - position || !Poco::UTF8Encoding::isLegal(position, length) ||
            (accepts != nullptr && !accepts(encoding.queryConvert(position, length)))) {
            return false;
        }
        position += length;
    }
    return true;
}

} // namespace SystemServer
