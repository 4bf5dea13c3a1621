#ifndef TESTS_SUPPORT_PAGE_H
#define TESTS_SUPPORT_PAGE_H

#include <string>
#include <vector>

namespace Support {

// A fenced block of one of the project's pages.
struct Block {
    std::string chapter; // its heading
    std::string info;    // what stands behind the opening fence
    std::string text;
};

// The blocks of a page, whose path is below the source directory; throws when there are none.
std::vector<Block> BlocksOf(const std::string& page);

// The bytes of the block of that kind, a dump: an offset, bytes in hexadecimal, and text between bars;
// * repeats the line above up to the next offset.
std::string BytesOfDump(const std::string& page, const std::string& info);

} // namespace Support

#endif
