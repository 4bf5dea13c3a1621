#include "appcfg/value.h"

#include <strings.h>

namespace appcfg {
namespace {

bool IsOneOf(std::string_view text, std::initializer_list<std::string_view> words) {
    for (const std::string_view word : words) {
        if (text.size() == word.size() && strncasecmp(text.data(), word.data(), word.size()) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace

bool ParseBool(std::string_view text) {
    if (IsOneOf(text, {"true", "yes", "on", "1"})) {
        return true;
    }
    if (IsOneOf(text, {"false", "no", "off", "0"})) {
        return false;
    }
    ThrowValueError(text, "a bool");
}

void ThrowValueError(std::string_view text, const char* expected) {
    constexpr size_t SHOWN = 64;
    const bool cut = text.size() > SHOWN;
    throw ValueError("the value '" + std::string(text.substr(0, SHOWN)) +
                     (cut ? "...' is not " : "' is not ") + expected);
}

} // namespace appcfg
