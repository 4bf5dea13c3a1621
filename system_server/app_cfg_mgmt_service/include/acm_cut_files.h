// Files whose last write failed half-way. A file is written in place, so that a disk without room leaves it
// cut; what the other copy holds is then all there is, and must not be cut as well.
#ifndef ACM_CUT_FILES_H
#define ACM_CUT_FILES_H

#include <string>

namespace SystemServer {

// Remembered over the end of an item, until the file is written whole. From any thread.
void NoteCut(const std::string& path, bool isCut);
bool IsCut(const std::string& path);

// Whether the bytes can be written to the file, seen by writing them behind its end and taking them off
// again. True also for what cannot be tried: a missing file, or one that is no regular file.
bool HasRoomFor(const std::string& bytes, const std::string& path);

} // namespace SystemServer

#endif
