#include "acm_file.h"

#include <Poco/Exception.h>
#include <Poco/File.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "acm_descriptor.h"
#include "acm_file_store.h"
#include "acm_limit.h"
#include "app_cfg_limits.h"

namespace SystemServer {

static_assert(sizeof(off_t) == 8 && sizeof(time_t) == 8, "files may be long, and dated after 2038");

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

bool IsWriteTarget(const struct stat& status) {
    return S_ISREG(status.st_mode) || S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
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
        if (content.size() > MAX_FILE_BYTES) {
            throw AcmLimitException("file too large", path);
        }
    }
}

int OpenOrThrow(const std::string& path, int flags, mode_t mode = 0) {
    const int fd = OpenPromptly(path, flags, mode);
    if (fd < 0) {
        ThrowFileError(path, errno);
    }
    return fd;
}

struct stat StatusOf(int fd, const std::string& path) {
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        ThrowFileError(path, errno);
    }
    return status;
}

// Removes a new file whose copying failed half-way: cut INI text would load like a whole file. Of a link only
// its target is removed.
void Remove(const std::string& path) {
    char target[PATH_MAX];
    if (realpath(path.c_str(), target) != nullptr) {
        unlink(target);
    }
}

} // namespace

std::string ReadRegularFile(const std::string& path) {
    RequireRegularFile(path); // before it is opened: opening a device may already do something
    const AcmDescriptor file(OpenOrThrow(path, O_RDONLY));
    RequireRegular(StatusOf(file.Get(), path), path);
    return ReadAll(file.Get(), path);
}

bool IsReachable(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 || (errno != ELOOP && errno != ENAMETOOLONG && errno != EACCES);
}

bool FileExists(const std::string& path) {
    struct stat status = {};
    return Poco::File(path).exists() || (IsReachable(path) && Look(path, status));
}

bool IsRegularFile(const std::string& path) {
    struct stat status = {};
    return IsReachable(path) && Look(path, status) && S_ISREG(status.st_mode);
}

void RequireRegularFile(const std::string& path) {
    struct stat status = {};
    if (Look(path, status)) {
        RequireRegular(status, path);
    }
}

void RequireWriteTarget(const std::string& path) {
    struct stat status = {};
    if (Look(path, status) && !IsWriteTarget(status)) {
        throw Poco::FileException("neither a regular file nor a device", path);
    }
}

void CopyRegularFile(const std::string& source, const std::string& destination) {
    RequireRegularFile(source); // before it is opened, as above
    const AcmDescriptor from(OpenOrThrow(source, O_RDONLY));
    const struct stat fromStatus = StatusOf(from.Get(), source);
    RequireRegular(fromStatus, source);
    const std::string content = ReadAll(from.Get(), source);
    struct stat toStatus = {};
    const bool isNew = !Look(destination, toStatus);
    if (!isNew && toStatus.st_dev == fromStatus.st_dev && toStatus.st_ino == fromStatus.st_ino) {
        return;
    }
    RequireWriteTarget(destination);
    if (!HasDiskSpaceFor(content.size(), destination)) {
        ThrowFileError(destination, ENOSPC);
    }
    const AcmWriting writing =
        WriteInPlace(content, destination, fromStatus.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO));
    if (writing.isTorn && isNew) {
        Remove(destination);
    }
    if (!writing.IsWhole()) {
        ThrowFileError(destination, writing.error);
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
    const auto* libraryFault = dynamic_cast<const Poco::Exception*>(&fault);
    if (libraryFault == nullptr) {
        return false;
    }
    if (dynamic_cast<const Poco::FileException*>(&fault) != nullptr) {
        return IsShortageError(libraryFault->code());
    }
    // The messages by which the parsers and the cipher's stream report a failed allocation.
    const std::string& text = libraryFault->message();
    return text == "No memory" || text == "out of memory" || text == "Cannot create Expat parser" ||
           text == "Output stream failure";
}

} // namespace SystemServer
