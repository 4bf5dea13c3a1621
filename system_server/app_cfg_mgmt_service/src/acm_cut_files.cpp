#include "acm_cut_files.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "acm_descriptor.h"
#include "app_cfg_limits.h"

namespace SystemServer {

namespace {

std::mutex g_mutex;
std::set<std::string> g_cutFiles; // guarded by g_mutex

bool IsRegular(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// Asked first, since it is one call and the answer of nearly every day. Blocks kept for the privileged do not
// count: whether they are ours to use is for the reservation to find out.
bool IsMuchFree(size_t bytes, const std::string& path) {
    struct statvfs status = {};
    return statvfs(path.c_str(), &status) != 0 || uint64_t{status.f_bavail} * status.f_frsize >= bytes;
}

} // namespace

void NoteCut(const std::string& path, bool isCut) {
    if (isCut && !IsRegular(path)) {
        return;
    }
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (!isCut) {
        g_cutFiles.erase(path);
        return;
    }
    g_cutFiles.insert(path);
    if (g_cutFiles.size() > MAX_CUT_FILES) {
        g_cutFiles.erase(g_cutFiles.begin());
    }
}

bool IsCut(const std::string& path) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_cutFiles.count(path) > 0;
}

// Reserves blocks behind the file's own, which then still hold its text. The write that follows gives them
// back by cutting the file before it begins.
bool HasRoomFor(size_t bytes, const std::string& path) {
    if (bytes == 0 || IsMuchFree(bytes, path)) {
        return true;
    }
    const AcmDescriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (file.Get() == -1 || !IsRegular(path)) {
        return true;
    }
    return fallocate(file.Get(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes)) == 0 ||
           (errno != ENOSPC && errno != EDQUOT);
}

} // namespace SystemServer
