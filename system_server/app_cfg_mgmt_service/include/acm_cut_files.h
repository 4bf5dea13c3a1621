// What a disk that takes no more leaves behind: files are written in place, so that a write that fails leaves
// its file cut, and what the other copy holds is then all there is.
#ifndef ACM_CUT_FILES_H
#define ACM_CUT_FILES_H

#include <string>

namespace SystemServer {

// Remembered over the end of an item, until the file is written whole or another program has replaced or
// changed it. From any thread; the lock inside is held for nothing else.
void NoteCut(const std::string& path, bool isCut);
bool IsCut(const std::string& path);

} // namespace SystemServer

#endif
