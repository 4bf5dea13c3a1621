#include "acm_file.h"

#include <Poco/Exception.h>
#include <Poco/File.h>

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "acm_descriptor.h"
#include "app_cfg_limits.h"

namespace SystemServer {

namespace {

[[noreturn]] void ThrowFileError(const std::string& path, int error) {
    if (error == ENOENT) {
        throw Poco::FileNotFoundException(path, error);
    }
    if (error == EACCES || error == EPERM) {
        throw Poco::FileAccessDeniedException("insufficient permissions", path, error);
    }
    throw Poco::FileException(std::generic_category().message(error), path, error);
}

void RequireRegular(const struct stat& status, const std::string& path) {
    if (!S_ISREG(status.st_mode)) {
        throw Poco::FileException("not a regular file", path);
    }
}

// Fills status and answers true when the path names something.
bool Look(const std::string& path, struct stat& status) {
    if (stat(path.c_str(), &status) == 0) {
        return true;
    }
    if (errno == ENOENT || errno == ENOTDIR) {
        return false;
    }
    ThrowFileError(path, errno);
}

bool IsSameFile(const std::string& one, const std::string& other) {
    struct stat oneStatus = {};
    struct stat otherStatus = {};
    return Look(one, oneStatus) && Look(other, otherStatus) && oneStatus.st_dev == otherStatus.st_dev &&
           oneStatus.st_ino == otherStatus.st_ino;
}

bool IsShortageError(int error) {
    return error == ENOMEM || error == EAGAIN || error == EMFILE || error == ENFILE;
}

std::string ReadAll(int fd, const std::string& path) {
    std::string content;
    char block[16384];
    for (;;) {
        const ssize_t got = read(fd, block, sizeof block);
        if (got > 0) {
            content.append(block, static_cast<size_t>(got));
        } else if (got == 0) {
            return content;
        } else if (errno != EINTR) {
            ThrowFileError(path, errno);
        }
        if (content.size() > MAX_DOCUMENT_BYTES) {
            throw Poco::FileException("file too large", path);
        }
    }
}

} // namespace

std::string ReadRegularFile(const std::string& path) {
    // Without O_NONBLOCK, opening a FIFO would wait for its writer.
    const AcmDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (file.Get() < 0) {
        ThrowFileError(path, errno);
    }
    struct stat status = {};
    if (fstat(file.Get(), &status) != 0) {
        ThrowFileError(path, errno);
    }
    RequireRegular(status, path);
    return ReadAll(file.Get(), path);
}

void RequireRegularFile(const std::string& path) {
    struct stat status = {};
    if (Look(path, status)) {
        RequireRegular(status, path);
    }
}

void RequireWriteTarget(const std::string& path) {
    struct stat status = {};
    if (Look(path, status) && !S_ISREG(status.st_mode) && !S_ISCHR(status.st_mode) &&
        !S_ISBLK(status.st_mode)) {
        throw Poco::FileException("neither a regular file nor a device", path);
    }
}

void CopyRegularFile(const std::string& source, const std::string& destination) {
    RequireRegularFile(source);
    // The library would truncate the file before it reads it.
    if (!IsSameFile(source, destination)) {
        Poco::File(source).copyTo(destination);
    }
}

bool IsShortage(const std::exception& fault) {
    if (dynamic_cast<const std::bad_alloc*>(&fault) != nullptr ||
        dynamic_cast<const Poco::OutOfMemoryException*>(&fault) != nullptr) {
        return true;
    }
    if (const auto* systemFault = dynamic_cast<const std::system_error*>(&fault)) {
        return IsShortageError(systemFault->code().value());
    }
    const auto* fileFault = dynamic_cast<const Poco::FileException*>(&fault);
    return fileFault != nullptr && IsShortageError(fileFault->code());
}

} // namespace SystemServer
