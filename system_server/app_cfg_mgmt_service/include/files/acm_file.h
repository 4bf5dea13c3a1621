// Reading and copying of configuration files that a client named. A path may lead anywhere by the time
// it is used: only regular files are read, so that no directory, FIFO or device can stall the service.
#ifndef ACM_FILE_H
#define ACM_FILE_H

#include <exception>
#include <string>

namespace SystemServer {

// The whole content of a regular file. Throws the file library's exceptions, Poco::FileException for a path
// that is no regular file and AcmLimitException for a file above MAX_FILE_BYTES.
std::string ReadRegularFile(const std::string& path);

// False for a path that leads nowhere: a loop of links, a name that is too long, a directory that may not be
// searched.
bool IsReachable(const std::string& path);

// As the library's own test: false also for a path that is not reachable. On a 32-bit machine that one takes
// a file for missing whose time is after 2038, as a wrong clock leaves it, and the file would be replaced by
// a copy. Throws when the path cannot be looked at for another reason.
bool FileExists(const std::string& path);

bool IsRegularFile(const std::string& path);

// Throws Poco::FileException when the path names an existing thing that is no regular file.
void RequireRegularFile(const std::string& path);

// Throws Poco::FileException when the path names an existing thing that a backup cannot be written to:
// neither a regular file nor a device.
void RequireWriteTarget(const std::string& path);

// Copies a regular file over another path, which keeps its mode or gets the source's; nothing to do when both
// are the same file. The library's own copy would follow whatever stands at the paths by then, rewrite the
// destination's path and empty a file that is copied onto itself.
void CopyRegularFile(const std::string& source, const std::string& destination);

// Whether the exception means that memory, threads or descriptors ran out, which says nothing about the
// file that was being worked on.
bool IsShortage(const std::exception& fault);

} // namespace SystemServer

#endif
