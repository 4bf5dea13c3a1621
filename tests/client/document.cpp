#include "document.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace appcfg::test {

std::string BlockOf(const std::string& page, const std::string& info, const std::string& from) {
    std::ifstream file(DOCS_DIRECTORY "/" + page);
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const std::string opening = "\n```" + info + "\n";
    const size_t start = text.find(opening, text.find(from));
    const size_t end = start == std::string::npos ? start : text.find("\n```\n", start + opening.size());
    if (end == std::string::npos) {
        throw std::runtime_error("no block ```" + info + " in " + page);
    }
    return text.substr(start + opening.size(), end + 1 - start - opening.size());
}

Bytes BytesOfDump(const std::string& dump) {
    Bytes bytes;
    Bytes last;
    bool repeating = false;
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);) {
        if (line == "*") {
            repeating = true;
            continue;
        }
        std::istringstream words(line.substr(0, line.find('|')));
        size_t offset = 0;
        words >> std::hex >> offset;
        while (repeating && bytes.size() < offset) {
            bytes.insert(bytes.end(), last.begin(), last.end());
        }
        if (bytes.size() != offset) {
            throw std::runtime_error("an offset of the dump is not the number of bytes before it: " + line);
        }
        repeating = false;
        last.clear();
        for (unsigned byte = 0; words >> byte;) {
            last.push_back(static_cast<uint8_t>(byte));
        }
        bytes.insert(bytes.end(), last.begin(), last.end());
    }
    return bytes;
}

} // namespace appcfg::test
