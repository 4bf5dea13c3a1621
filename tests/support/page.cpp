#include "page.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Support {

std::vector<Block> BlocksOf(const std::string& page) {
    const std::string fence = "```";
    const std::string heading = "## ";
    std::ifstream file(SOURCE_DIRECTORY "/" + page);
    std::vector<Block> blocks;
    std::string chapter;
    bool isInBlock = false;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(fence, 0) == 0) {
            isInBlock = !isInBlock;
            if (isInBlock) {
                blocks.push_back({chapter, line.substr(fence.size()), ""});
            }
        } else if (isInBlock) {
            blocks.back().text += line + "\n";
        } else if (line.rfind(heading, 0) == 0) {
            chapter = line.substr(heading.size());
        }
    }
    if (blocks.empty()) {
        throw std::runtime_error("no blocks in " + page);
    }
    return blocks;
}

std::string BytesOfDump(const std::string& page, const std::string& info) {
    std::string bytes;
    std::string last;
    for (const Block& block : BlocksOf(page)) {
        std::istringstream lines(block.info == info ? block.text : "");
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
                throw std::runtime_error("an offset is not the number of bytes before it: " + line);
            }
            last.clear();
            for (unsigned byte = 0; words >> byte;) {
                last.push_back(static_cast<char>(byte));
            }
            bytes += last;
        }
    }
    return bytes;
}

} // namespace Support
