#include "acm_room.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "acm_cut_files.h"
#include "acm_descriptor.h"

namespace SystemServer {

namespace {

// A write beyond the bound would end the process by a signal, if nobody ignores it.
bool IsAllowed(uint64_t bytes) {
    rlimit longest = {};
    return getrlimit(RLIMIT_FSIZE, &longest) != 0 || bytes <= longest.rlim_cur;
}

// Asked first, since it is one call and the answer of nearly every day. Blocks kept for the privileged do not
// count: whether they are ours to use is for the reservation to find out.
bool IsMuchFree(size_t bytes, const std::string& path) {
    struct statvfs status = {};
    return statvfs(path.c_str(), &status) != 0 || status.f_blocks == 0 || // of no size that it tells
           uint64_t{status.f_bavail} * status.f_frsize >= bytes;
}

bool IsFull(int error) {
    return error == ENOSPC || error == EDQUOT;
}

// Blocks behind the file's own, which still hold its text then. 0, or the error; what a refusal had already
// taken is given back, by cutting the file to the length that it has.
int Reserve(int fd, const struct stat& status, size_t bytes) {
    if (fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes)) == 0) {
        return 0;
    }
    const int error = errno;
    if (IsFull(error)) {
        [[maybe_unused]] const int fault = ftruncate(fd, status.st_size);
    }
    return error;
}

// One pass over the file from its begin: as much as was there is there afterwards, byte for byte.
bool WriteOverItself(int fd) {
    char block[16384];
    off_t at = 0;
    for (;;) {
        const ssize_t got = pread(fd, block, sizeof block, at);
        if (got <= 0) {
            return got == 0 && fsync(fd) == 0;
        }
        if (pwrite(fd, block, static_cast<size_t>(got), at) != got) {
            return false;
        }
        at += got;
    }
}

} // namespace

bool HasRoomFor(size_t bytes, const std::string& path) {
    struct stat status = {};
    if (!IsAllowed(bytes)) {
        return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
    }
    if (bytes == 0 || IsMuchFree(bytes, path)) {
        return true;
    }
    const bool wasCut = IsCut(path);
    const AcmDescriptor file(OpenPromptly(path, O_WRONLY));
    if (file.Get() == -1) {
        return !IsFull(errno); // to open a file of an overlay's lower layer copies it
    }
    if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return true;
    }
    const int error = Reserve(file.Get(), status, bytes);
    if (wasCut) {
        NoteCut(path, true); // its time may have changed
    }
    return !IsFull(error);
}

bool IsSureToTake(size_t bytes, const std::string& path) {
    const AcmDescriptor file(OpenPromptly(path, O_RDWR));
    if (file.Get() == -1) {
        return errno == ENOENT; // nothing is there to be lost
    }
    struct stat status = {};
    if (fstat(file.Get(), &status) != 0) {
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        return true;
    }
    const auto length = static_cast<uint64_t>(status.st_size);
    if (!IsAllowed(std::max<uint64_t>(bytes, length))) {
        return false;
    }
    const int error = bytes <= length ? 0 : Reserve(file.Get(), status, bytes);
    return (error == 0 || (error == EOPNOTSUPP && IsMuchFree(bytes, path))) && WriteOverItself(file.Get());
}

} // namespace SystemServer
