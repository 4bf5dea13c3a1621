#include "acm_file_store.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "acm_descriptor.h"
#include "app_cfg_log.h"

namespace SystemServer {

namespace {

bool IsRegular(int fd) {
    struct stat status = {};
    return fstat(fd, &status) != 0 || S_ISREG(status.st_mode);
}

// Without this a power cut could remove the whole new file.
void SyncDirectoryOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const AcmDescriptor directory(
        OpenPromptly(slash == std::string::npos ? "." : path.substr(0, slash + 1), O_RDONLY | O_DIRECTORY));
    if (directory.Get() == -1 || (fsync(directory.Get()) == -1 && !CannotSync(errno))) {
        ACM_LOG(ACM_ERROR, "sync the directory of [%s] fail.", path.c_str());
    }
}

AcmWriting WriteOpened(int fd, const std::string& data) {
    const ssize_t written = write(fd, data.data(), data.size());
    if (written < 0 || static_cast<size_t>(written) != data.size()) {
        return {AcmWriting::WRITE, written < 0 ? errno : ENOSPC, written, IsRegular(fd)};
    }
    if (fsync(fd) == -1) {
        const int error = errno;
        return {AcmWriting::SYNC, error, written, !CannotSync(error) && IsRegular(fd)};
    }
    return {AcmWriting::NONE, 0, written, false};
}

// Whether the process may write a file of this length. A write beyond RLIMIT_FSIZE would end it by a signal.
bool IsAllowed(uint64_t bytes) {
    rlimit longest = {};
    return getrlimit(RLIMIT_FSIZE, &longest) != 0 || bytes <= longest.rlim_cur;
}

// Asked first: it takes one call, and there is nearly always enough. Blocks reserved for root are not
// counted; CanReserve finds out whether this process may use them.
bool IsMuchFree(size_t bytes, const std::string& path) {
    struct statvfs status = {};
    return statvfs(path.c_str(), &status) != 0 || status.f_blocks == 0 || // the file system reports no size
           uint64_t{status.f_bavail} * status.f_frsize >= bytes;
}

bool IsFull(int error) {
    return error == ENOSPC || error == EDQUOT;
}

// Reserves blocks behind the file's present content, which is kept. A refused reservation may have taken some
// blocks already: cutting the file to the length that it has frees them.
bool CanReserve(int fd, const struct stat& status, size_t bytes) {
    if (fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes)) == 0 || !IsFull(errno)) {
        return true;
    }
    [[maybe_unused]] const int fault = ftruncate(fd, status.st_size);
    return false;
}

} // namespace

AcmWriting WriteInPlace(const std::string& data, const std::string& path, mode_t mode) {
    int fd = OpenPromptly(path, O_WRONLY | O_TRUNC);
    const bool isNew = fd == -1 && errno == ENOENT;
    if (isNew) {
        fd = OpenPromptly(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
    }
    if (fd == -1) {
        return {AcmWriting::OPEN, errno, 0, false};
    }
    AcmWriting result;
    {
        const AcmDescriptor file(fd);
        result = WriteOpened(file.Get(), data);
    }
    if (isNew) {
        SyncDirectoryOf(path);
    }
    return result;
}

void LogWriting(const AcmWriting& writing, size_t bytes, const std::string& path) {
    switch (writing.failed) {
    case AcmWriting::NONE:
        return;
    case AcmWriting::OPEN:
        ACM_LOG(ACM_ERROR, "open [%s] fail.", path.c_str());
        return;
    case AcmWriting::WRITE:
        ACM_LOG(ACM_ERROR, "write [%s] fail.required wr len[%zu] actual wr len[%zd].", path.c_str(), bytes,
                writing.written);
        return;
    case AcmWriting::SYNC:
        ACM_LOG(ACM_ERROR, "fsync [%s] fail.", path.c_str());
        return;
    }
}

bool HasDiskSpaceFor(size_t bytes, const std::string& path) {
    struct stat status = {};
    if (!IsAllowed(bytes)) {
        return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
    }
    if (bytes == 0 || IsMuchFree(bytes, path)) {
        return true;
    }
    const AcmDescriptor file(OpenPromptly(path, O_WRONLY));
    if (file.Get() == -1) {
        return !IsFull(errno); // on an overlay, opening a file of the lower layer copies it
    }
    return fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode) ||
           CanReserve(file.Get(), status, bytes);
}

void AcmFileStore::Write(Copy copy, const std::string& text, uint32_t change) {
    const Copy other = copy == CFG ? BACKUP : CFG;
    const bool isOtherTorn = IsTorn(other) && !PathOf(other).empty();
    if (!IsTorn(copy) && isOtherTorn && !WriteCopy(other, text, change) && !MayOverwriteLast(copy, other)) {
        ACM_LOG(ACM_ERROR, "[%s] is left as it is: no other copy is whole.", PathOf(copy).c_str());
        return;
    }
    WriteCopy(copy, text, change);
}

bool AcmFileStore::IsBehind(Copy copy, uint32_t change) const {
    const State& state = m_copies[PathOf(copy) == PathOf(CFG) ? CFG : copy]; // both may be the same file
    return !PathOf(copy).empty() && (state.isLost || state.change != change);
}

bool AcmFileStore::WriteCopy(Copy copy, const std::string& text, uint32_t change) {
    const std::string& path = PathOf(copy);
    State& state = m_copies[copy];
    state.openError = 0;
    if (!HasDiskSpaceFor(text.size(), path)) {
        ACM_LOG(ACM_ERROR, "no room to write [%s], which is left as it is.", path.c_str());
        return false;
    }
    const AcmWriting writing = WriteInPlace(text, path, S_IRUSR | S_IWUSR);
    LogWriting(writing, text.size(), path);
    if (writing.IsWhole()) {
        NoteWhole(copy, change);
    } else if (writing.isTorn) {
        state.isTorn = state.isLost = true;
    } else {
        state.openError = writing.error;
    }
    return writing.IsWhole();
}

bool AcmFileStore::MayOverwriteLast(Copy last, Copy torn) const {
    struct stat lastStatus = {};
    struct stat tornStatus = {};
    return m_copies[torn].openError != 0 ||
           (stat(PathOf(last).c_str(), &lastStatus) == 0 && stat(PathOf(torn).c_str(), &tornStatus) == 0 &&
            lastStatus.st_dev != tornStatus.st_dev);
}

} // namespace SystemServer
