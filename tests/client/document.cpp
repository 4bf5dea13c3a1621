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

std::string BytesOfDump(const std::string& dump) {
    std::string bytes;
    std::string last;
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line.substr(0, line.find('|')));
        size_t offset = 0;
        if (!(words >> std::hex >> offset)) { // a star
            continue;
        }
        while (!last.empty() && bytes.size() < offset) {
            bytes += last;
        }
        if (bytes.size() != offset) {
            throw std::runtime_error("an offset of the dump is not the number of bytes before it: " + line);
        }
        last.clear();
        for (unsigned byte = 0; words >> byte;) {
            last.push_back(static_cast<char>(byte));
        }
        bytes += last;
    }
    return bytes;
}

} // namespace appcfg::test
