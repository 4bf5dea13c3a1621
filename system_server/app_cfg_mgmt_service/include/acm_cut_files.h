// What a disk that takes no more leaves behind: files are written in place, so that a write that fails leaves
// its file cut, and what the other copy holds is then all there is.
#ifndef ACM_CUT_FILES_H
#define ACM_CUT_FILES_H

#include <cstddef>
#include <string>

namespace SystemServer {

// Remembered over the end of an item, until the file is written whole or another program has replaced or
// changed it. From any thread; the lock inside is held for nothing else.
void NoteCut(const std::string& path, bool isCut);
bool IsCut(const std::string& path);

// False when the file is sure not to take so many bytes in place of its own. True also for what cannot be
// told: a missing file, one that is no regular file, a file system that reserves no room, a quota on a disk
// with room.
bool HasRoomFor(size_t bytes, const std::string& path);

// Whether the file, whose text must not be lost, takes so many bytes written over its own: there is room for
// them, and the very bytes that it holds, with which a failure or a crash changes nothing, can be written.
// False for what cannot be told. A file system that reserves nothing is asked what it has.
bool IsSureToTake(size_t bytes, const std::string& path);

} // namespace SystemServer

#endif
