#include "recording.h"

#include <fcntl.h>

#include <algorithm>
#include <mutex>

namespace Endurance {

namespace {

// A file system writes whole blocks.
constexpr size_t BLOCK = 4096;

struct OpenFile {
    std::string name;
    off_t at;
};

std::mutex g_mutex; // guards what follows
std::string g_directory;
std::vector<Event> g_events;
std::map<int, OpenFile> g_open;

// The name below the directory; nothing for what is elsewhere.
std::optional<std::string> NameOf(const std::string& path) {
    if (path == g_directory) {
        return "";
    }
    return path.rfind(g_directory + "/", 0) == 0 ? std::optional(path.substr(g_directory.size() + 1))
                                                 : std::nullopt;
}

void TakeOpen(const FileCall& call) {
    const std::optional<std::string> name = NameOf(call.path);
    const bool mayChange = (call.flags & O_ACCMODE) != O_RDONLY || (name && name->empty());
    if (call.fd >= 0 && name && mayChange) {
        g_open[call.fd] = {*name, 0};
        g_events.push_back({call.kind, *name, call.isNew, (call.flags & O_TRUNC) != 0, 0, "", nullptr});
    }
}

void TakeCall(const FileCall& call) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (g_directory.empty()) {
        return;
    }
    if (call.kind == FileCall::OPEN) {
        TakeOpen(call);
    } else if (call.kind == FileCall::REMOVE && NameOf(call.path)) {
        g_events.push_back({call.kind, *NameOf(call.path), false, false, 0, "", nullptr});
    }
    const auto file = g_open.find(call.fd);
    if (call.kind == FileCall::OPEN || file == g_open.end()) {
        return;
    }
    Event event{call.kind, file->second.name, false, false, call.size, "", nullptr};
    if (call.kind == FileCall::WRITE) {
        event.data.assign(static_cast<const char*>(call.data),
                          static_cast<size_t>(std::max<ssize_t>(call.size, 0)));
        event.at = call.at >= 0 ? call.at : file->second.at;
        file->second.at += call.at >= 0 ? 0 : static_cast<off_t>(event.data.size());
    }
    g_events.push_back(std::move(event));
    if (call.kind == FileCall::CLOSE) {
        g_open.erase(file);
    }
}

// The file with the bytes in place.
std::string Overlaid(std::string content, off_t at, const std::string& bytes) {
    const auto begin = static_cast<size_t>(at);
    content.resize(std::max(content.size(), begin + bytes.size()));
    return content.replace(begin, bytes.size(), bytes);
}

} // namespace

Recording::Recording(const std::string& directory) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_directory = directory;
    FaultTest::Watch(TakeCall);
}

void Recording::Mark(const TrackedItem& item) {
    auto known = std::make_shared<TrackedItem>(item);
    known->m_tell = nullptr;
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_events.push_back({FileCall::CLOSE, "", false, false, 0, "", std::move(known)});
}

std::vector<Event> Recording::Take() {
    FaultTest::Watch(nullptr);
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_directory.clear();
    g_open.clear();
    return std::exchange(g_events, {});
}

void Disk::Apply(const Event& event) {
    if (event.kind == FileCall::SYNC && event.name.empty()) {
        SyncDirectory();
    }
    if (event.name.empty()) {
        return;
    }
    DiskFile& file = m_files[event.name];
    if (event.kind == FileCall::OPEN) {
        Open(file, event);
    } else if (event.kind == FileCall::WRITE) {
        Write(file, event);
    } else if (event.kind == FileCall::TRUNCATE) {
        file.now->resize(static_cast<size_t>(event.at));
        file.left.insert(file.now);
    } else if (event.kind == FileCall::SYNC) {
        file.left = {file.now};
        if (!file.isFound) {
            file.left.insert(std::nullopt);
        }
    } else if (event.kind == FileCall::REMOVE) {
        file.now.reset();
        file.left.insert(std::nullopt);
    }
}

void Disk::Open(DiskFile& file, const Event& event) const {
    if (event.isNew) {
        file.isFound = false;
        file.left.insert(std::nullopt);
    }
    if (event.isNew || event.isTruncated) {
        file.now = "";
        file.left.insert(file.now);
    }
}

// Nothing, one byte, each number of blocks, all but one byte or all of it; the rest is missing or zero.
void Disk::Write(DiskFile& file, const Event& event) {
    const size_t size = event.data.size();
    std::set<size_t> cuts{0, std::min<size_t>(1, size), size - std::min<size_t>(1, size), size};
    for (size_t cut = BLOCK; cut < size; cut += BLOCK) {
        cuts.insert(cut);
    }
    const std::string before = *file.now;
    for (const size_t cut : cuts) {
        const std::string kept = event.data.substr(0, cut);
        file.left.insert(Overlaid(before, event.at, kept));
        file.left.insert(Overlaid(before, event.at, kept + std::string(size - cut, '\0')));
    }
    file.now = Overlaid(before, event.at, event.data);
}

void Disk::SyncDirectory() {
    for (auto& [name, file] : m_files) {
        file.isFound = true;
        if (file.now) {
            file.left.erase(std::nullopt);
        } else {
            file.left = {std::nullopt};
        }
    }
}

} // namespace Endurance
