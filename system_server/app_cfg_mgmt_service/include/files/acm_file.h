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

// False for a path that cannot lead to a file: a loop of links, a name that is too long, a directory without
// permission to search it.
bool IsReachable(const std::string& path);

// Whether the path names anything; false also for a path that is not reachable. Throws when it cannot be
// looked at for another reason. The library's own test alone is not enough: on a 32-bit machine it reports a
// file as missing when a wrong clock dated it after 2038, and the file would be overwritten by a copy.
bool FileExists(const std::string& path);

bool IsRegularFile(const std::string& path);

// Throws Poco::FileException when the path exists and is no regular file.
void RequireRegularFile(const std::string& path);

// Throws Poco::FileException when the path exists and is neither a regular file nor a device: a backup cannot
// be written to it.
void RequireWriteTarget(const std::string& path);

// Copies a regular file. An existing destination keeps its mode, a new one gets the source's; when both are
// the same file, nothing is done. The library's own copy is not used: it would read any kind of file, replace
// the destination instead of writing it in place, and empty a file that is copied onto itself.
void CopyRegularFile(const std::string& source, const std::string& destination);

// Whether the exception means that memory, threads or descriptors ran out, which says nothing about the
// file that was being worked on.
bool IsShortage(const std::exception& fault);

} // namespace SystemServer

#endif
