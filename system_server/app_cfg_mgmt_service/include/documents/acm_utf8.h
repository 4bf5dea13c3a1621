// Checks that a text is UTF-8; the document library does not.
#ifndef ACM_UTF8_H
#define ACM_UTF8_H

#include <string>

namespace SystemServer {

// With a second argument, that function must accept each character too.
bool IsUtf8(const std::string& text, bool (*accepts)(int character) = nullptr);

} // namespace SystemServer

#endif
