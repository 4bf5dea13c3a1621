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

#include "acm_cut_files.h"
#include "acm_descriptor.h"
#include "acm_room.h"
#include "app_cfg_limits.h"

namespace SystemServer {

POCO_IMPLEMENT_EXCEPTION(AcmTooLargeException, Poco::FileException, "Too large")

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
            throw AcmTooLargeException("file too large", path);
        }
    }
}

void WriteAll(int fd, const std::string& content, const std::string& path) {
    size_t at = 0;
    while (at < content.size()) {
        const ssize_t written = write(fd, content.data() + at, content.size() - at);
        if (written > 0) {
            at += static_cast<size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            ThrowFileError(path, written == 0 ? ENOSPC : errno);
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

// Writes the content over an open file. A device has no length to cut and may have nothing to sync.
void Overwrite(int fd, const struct stat& status, const std::string& content, const std::string& path) {
    if (S_ISREG(status.st_mode) && ftruncate(fd, 0) != 0) {
        ThrowFileError(path, errno);
    }
    try {
        WriteAll(fd, content, path);
        if (S_ISREG(status.st_mode) && fsync(fd) != 0) {
            ThrowFileError(path, errno);
        }
    } catch (...) {
        NoteCut(path, true);
        throw;
    }
    NoteCut(path, false);
}

void CopyContent(const std::string& content, const struct stat& fromStatus, const std::string& destination) {
    // Truncated only once it is known not to be the source itself.
    const AcmDescriptor to(
        OpenOrThrow(destination, O_WRONLY | O_CREAT, fromStatus.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO)));
    const struct stat toStatus = StatusOf(to.Get(), destination);
    if (toStatus.st_dev == fromStatus.st_dev && toStatus.st_ino == fromStatus.st_ino) {
        return;
    }
    if (!IsWriteTarget(toStatus)) {
        throw Poco::FileException("neither a regular file nor a device", destination);
    }
    if (!HasRoomFor(content.size(), destination)) {
        ThrowFileError(destination, ENOSPC);
    }
    Overwrite(to.Get(), toStatus, content, destination);
}

// A part of a copy must not stand for the file: cut INI text loads like any other. What a link names goes,
// and the link stays.
bool Remove(const std::string& path) {
    char target[PATH_MAX];
    return realpath(path.c_str(), target) != nullptr && unlink(target) == 0;
}

} // namespace

std::string ReadRegularFile(const std::string& path) {
    RequireRegularFile(path); // not even opened otherwise
    const AcmDescriptor file(OpenOrThrow(path, O_RDONLY));
    RequireRegular(StatusOf(file.Get(), path), path);
    return ReadAll(file.Get(), path);
}

bool FileExists(const std::string& path) {
    struct stat status = {};
    return Poco::File(path).exists() || Look(path, status);
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
    RequireRegularFile(source); // not even opened otherwise
    const AcmDescriptor from(OpenOrThrow(source, O_RDONLY));
    const struct stat fromStatus = StatusOf(from.Get(), source);
    RequireRegular(fromStatus, source);
    const std::string content = ReadAll(from.Get(), source);
    struct stat before = {};
    const bool isNew = !Look(destination, before);
    try {
        CopyContent(content, fromStatus, destination);
    } catch (...) {
        if (isNew && Remove(destination)) {
            NoteCut(destination, false);
        }
        throw;
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
    // What the parsers and the cipher's stream make of a failed allocation.
    const std::string& text = libraryFault->message();
    return text == "No memory" || text == "out of memory" || text == "Cannot create Expat parser" ||
           text == "Output stream failure";
}

} // namespace SystemServer
