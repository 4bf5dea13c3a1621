#ifndef TESTS_SUPPORT_WITHOUT_BLANKS_H
#define TESTS_SUPPORT_WITHOUT_BLANKS_H

#include <algorithm>
#include <string>

namespace Support {

// A text without the white space that stands alone between tags, of which the writer of XML adds some.
inline std::string WithoutBlanks(const std::string& text) {
    std::string rest;
    size_t at = 0;
    while (at < text.size()) {
        const size_t tag = std::min(text.find('>', at), text.size() - 1) + 1;
        rest.append(text, at, tag - at);
        at = std::min(text.find_first_not_of(" \t\r\n", tag), text.size());
        if (at < text.size() && text[at] != '<') {
            at = tag;
        }
    }
    return rest;
}

} // namespace Support

#endif
