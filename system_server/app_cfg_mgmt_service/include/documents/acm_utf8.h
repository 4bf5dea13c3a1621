// Whether a text is UTF-8, which the document library takes on trust.
#ifndef ACM_UTF8_H
#define ACM_UTF8_H

#include <string>

namespace SystemServer {

// Each character must be accepted as well, where that is asked for.
bool IsUtf8(const std::string& text, bool (*accepts)(int character) = nullptr);

} // namespace SystemServer

#endif
