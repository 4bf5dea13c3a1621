#include "split_words.h"

#include "exit_status.h"

namespace appcfg::cli {
namespace {

constexpr char BLANKS[] = " \t\r\n";

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Reads one word from a position that is no blank; leaves the position behind it.
std::string ReadWord(const std::string& line, size_t& at) {
    std::string word;
    char quote = '\0';
    for (; at < line.size() && (quote != '\0' || !IsBlank(line[at])); ++at) {
        const char c = line[at];
        if (c == quote) {
            quote = '\0';
        } else if (quote == '\0' && (c == '\'' || c == '"')) {
            quote = c;
        } else if (c == '\\' && quote != '\'' && at + 1 < line.size()) {
            word += line[++at];
        } else {
            word += c;
        }
    }
    if (quote != '\0') {
        throw UsageError(std::string("a quote ") + quote + " does not end");
    }
    return word;
}

} // namespace

std::vector<std::string> SplitWords(const std::string& line) {
    std::vector<std::string> words;
    size_t at = line.find_first_not_of(BLANKS);
    if (at != std::string::npos && line[at] == '#') {
        return words;
    }
    while (at != std::string::npos && at < line.size()) {
        words.push_back(ReadWord(line, at));
        at = line.find_first_not_of(BLANKS, at);
    }
    return words;
}

} // namespace appcfg::cli
