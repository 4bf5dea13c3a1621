// The contents of replies, read with every length checked against the bytes that came.
#ifndef APPCFG_REPLY_H
#define APPCFG_REPLY_H

#include <cstddef>
#include <string>
#include <vector>

namespace appcfg {

// The values of a get, or the fragment of a raw get. ConnectionError when the content does not add up.
std::vector<std::string> ParseValues(const void* content, size_t size, size_t expected);
std::string ParseFragment(const void* content, size_t size);

} // namespace appcfg

#endif
