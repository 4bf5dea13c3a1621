#include "acm_cut_files.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>
#include <mutex>
#include <sys/stat.h>

#include "app_cfg_limits.h"

namespace SystemServer {

namespace {

// A file as its failed write left it. What is there later and differs is another's work.
struct CutFile {
    bool isKnown; // otherwise it could not be looked at
    struct stat status;
    uint64_t number; // counts up
};

std::mutex g_mutex;
std::map<std::string, CutFile> g_cutFiles; // guarded by g_mutex
uint64_t g_lastNumber = 0;                 // guarded by g_mutex

bool IsSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_size == other.st_size &&
           one.st_mtim.tv_sec == other.st_mtim.tv_sec && one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

void ForgetOldest() {
    const auto isOlder = [](const auto& one, const auto& other) {
        return one.second.number < other.second.number;
    };
    g_cutFiles.erase(std::min_element(g_cutFiles.begin(), g_cutFiles.end(), isOlder));
}

bool Find(const std::string& path, CutFile& file) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    const auto found = g_cutFiles.find(path);
    if (found == g_cutFiles.end()) {
        return false;
    }
    file = found->second;
    return true;
}

} // namespace

void NoteCut(const std::string& path, bool isCut) {
    CutFile file{};
    if (isCut) {
        const bool isThere = stat(path.c_str(), &file.status) == 0;
        if (isThere && !S_ISREG(file.status.st_mode)) {
            return;
        }
        file.isKnown = isThere || errno == ENOENT; // what comes to be there is another's work, too
    }
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (!isCut) {
        g_cutFiles.erase(path);
        return;
    }
    file.number = ++g_lastNumber;
    g_cutFiles[path] = file;
    if (g_cutFiles.size() > MAX_CUT_FILES) {
        ForgetOldest();
    }
}

bool IsCut(const std::string& path) {
    CutFile file{};
    if (!Find(path, file)) {
        return false;
    }
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || (file.isKnown && IsSame(status, file.status))) {
        return true;
    }
    const std::lock_guard<std::mutex> lock(g_mutex);
    const auto found = g_cutFiles.find(path);
    if (found == g_cutFiles.end() || found->second.number != file.number) {
        return found != g_cutFiles.end(); // written meanwhile
    }
    if (file.isKnown) {
        g_cutFiles.erase(found);
        return false;
    }
    found->second.isKnown = true;
    found->second.status = status;
    return true;
}

} // namespace SystemServer
