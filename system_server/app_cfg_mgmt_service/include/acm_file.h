// Reading and copying of configuration files that a client named. A path may lead anywhere by the time
// it is used: only regular files are read, so that no directory, FIFO or device can stall the service.
#ifndef ACM_FILE_H
#define ACM_FILE_H

#include <exception>
#include <string>

namespace SystemServer {

// The whole content of a regular file. Throws the file library's exception for what went wrong, and
// Poco::FileException for a path that is no regular file or a file above MAX_DOCUMENT_BYTES.
std::string ReadRegularFile(const std::string& path);

// Throws Poco::FileException when the path names an existing thing that is no regular file.
void RequireRegularFile(const std::string& path);

// Throws Poco::FileException when the path names an existing thing that a backup cannot be written to:
// neither a regular file nor a device.
void RequireWriteTarget(const std::string& path);

// Copies a regular file over another path; done already when both are the same file.
void CopyRegularFile(const std::string& source, const std::string& destination);

// Whether the exception means that memory, threads or descriptors ran out, which says nothing about the
// file that was being worked on.
bool IsShortage(const std::exception& fault);

} // namespace SystemServer

#endif
