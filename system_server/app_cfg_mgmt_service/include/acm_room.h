// Whether a text fits: a file is emptied before it is written, and then it is too late to ask.
#ifndef ACM_ROOM_H
#define ACM_ROOM_H

#include <cstddef>
#include <string>

namespace SystemServer {

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
