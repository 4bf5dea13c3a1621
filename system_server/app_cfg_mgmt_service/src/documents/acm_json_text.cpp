// The document library misreads two things without reporting it: an integer just beyond 64 bits becomes
// another number, and a member's name is cut at its first NUL. The next save would write the wrong value, so
// the text is searched for both before it is accepted.
#include "acm_json_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "app_cfg_limits.h"

namespace SystemServer {

namespace {

struct JsonString {
    size_t end; // behind its quotation mark
    bool hasNul;
};

JsonString ReadString(const std::string& text, size_t begin) {
    bool hasNul = false;
    size_t at = begin + 1;
    for (; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\') {
            hasNul = hasNul || text.compare(at, 6, "\\u0000") == 0;
            ++at;
        }
    }
    return {std::min(at + 1, text.size()), hasNul};
}

bool IsName(const std::string& text, const JsonString& string) {
    const size_t next = text.find_first_not_of(" \t\r\n", string.end);
    return next != std::string::npos && text[next] == ':';
}

bool IsIntegerBeyond64Bits(const std::string& number) {
    if (number.find_first_of(".eE") != std::string::npos) {
        return false;
    }
    errno = 0;
    number[0] == '-' ? static_cast<void>(std::strtoll(number.c_str(), nullptr, 10))
                     : static_cast<void>(std::strtoull(number.c_str(), nullptr, 10));
    return errno == ERANGE;
}

} // namespace

uint64_t JsonLineBytes(uint64_t depth) {
    return JSON_INDENTATION * (depth + 1) + 4;
}

AcmJsonSurvey SurveyJson(const std::string& text) {
    AcmJsonSurvey survey;
    survey.writtenBytes = text.size();
    uint64_t depth = 0;
    for (size_t at = 0; at < text.size();) {
        const char byte = text[at];
        size_t end = at + 1;
        if (byte == '"') {
            const JsonString string = ReadString(text, at);
            end = string.end;
            if (string.hasNul && IsName(text, string)) {
                survey.unkeepable = "a name with a NUL";
            }
        } else if (byte == '-' || (byte >= '0' && byte <= '9')) {
            end = std::min(text.find_first_not_of("0123456789.eE+-", at), text.size());
            if (IsIntegerBeyond64Bits(text.substr(at, end - at))) {
                survey.unkeepable = "an integer beyond 64 bits";
            }
        } else if (byte == '{' || byte == '[') {
            survey.depth = std::max(survey.depth, ++depth);
        } else if (byte == '}' || byte == ']') {
            depth -= depth > 0 ? 1 : 0;
        }
        if (byte == '{' || byte == '[' || byte == '}' || byte == ']' || byte == ',' || byte == ':') {
            survey.writtenBytes += JsonLineBytes(depth);
        }
        at = end;
    }
    return survey;
}

} // namespace SystemServer
