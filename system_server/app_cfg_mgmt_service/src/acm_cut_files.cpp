#include "acm_cut_files.h"

#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "acm_descriptor.h"
#include "app_cfg_limits.h"

namespace SystemServer {

namespace {

// Two for each item; a file beyond these is not remembered.
constexpr size_t MAX_CUT_FILES = 2 * MAX_ITEMS;

std::mutex g_mutex;
std::set<std::string> g_cutFiles; // guarded by g_mutex

} // namespace

void NoteCut(const std::string& path, bool isCut) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (!isCut) {
        g_cutFiles.erase(path);
    } else if (g_cutFiles.size() < MAX_CUT_FILES) {
        g_cutFiles.insert(path);
    }
}

bool IsCut(const std::string& path) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_cutFiles.count(path) > 0;
}

bool HasRoomFor(const std::string& bytes, const std::string& path) {
    const AcmDescriptor file(open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (file.Get() == -1) {
        return errno == ENOENT;
    }
    struct stat status = {};
    if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return true;
    }
    const ssize_t written = write(file.Get(), bytes.data(), bytes.size());
    const bool fits = written >= 0 && static_cast<size_t>(written) == bytes.size() && fsync(file.Get()) == 0;
    return ftruncate(file.Get(), status.st_size) == 0 && fits;
}

} // namespace SystemServer
