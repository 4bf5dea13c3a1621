// The calls that change the files of one directory, and what a power cut after each of them leaves.
#ifndef POWER_RECORDING_H
#define POWER_RECORDING_H

#include <fcntl.h>

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "support/injection.h"
#include "tracked_item.h"

namespace Endurance {

using FaultTest::FileCall;

// A call, or what was known of the item from then on.
struct Event {
    FileCall::Kind kind;
    std::string name; // of the file; empty for the directory itself
    bool isNew = false;
    bool isTruncated = false;
    off_t at = 0;
    std::string data{};
    std::shared_ptr<const TrackedItem> known{};
};

// Records from its construction until Take, by whatever thread the calls are made. One at a time.
class Recording {
public:
    explicit Recording(const std::string& directory) {
        const std::lock_guard<std::mutex> lock(s_mutex);
        s_directory = directory + "/";
        FaultTest::Watch(TakeCall);
    }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
    ~Recording() { Take(); }

    static void Mark(const TrackedItem& item) {
        auto known = std::make_shared<TrackedItem>(item);
        known->m_tell = nullptr;
        const std::lock_guard<std::mutex> lock(s_mutex);
        s_events.push_back({FileCall::CLOSE, "", false, false, 0, "", std::move(known)});
    }

    // Strategies act while a sync takes so long.
    static inline std::atomic<int> s_syncMilliseconds{0};

    static std::vector<Event> Take() {
        FaultTest::Watch(nullptr);
        const std::lock_guard<std::mutex> lock(s_mutex);
        s_directory.clear();
        s_open.clear();
        return std::exchange(s_events, {});
    }

private:
    static void TakeCall(const FileCall& call) {
        if (call.kind == FileCall::SYNC) {
            std::this_thread::sleep_for(std::chrono::milliseconds(s_syncMilliseconds));
        }
        const std::lock_guard<std::mutex> lock(s_mutex);
        if (s_directory.empty()) {
            return;
        }
        if (call.kind == FileCall::OPEN || call.kind == FileCall::REMOVE) {
            TakePath(call);
            return;
        }
        const auto file = s_open.find(call.fd);
        if (file == s_open.end()) {
            return;
        }
        auto& [name, stands] = file->second;
        Event event{call.kind, name, false, false, call.size};
        if (call.kind == FileCall::WRITE) {
            event.data.assign(static_cast<const char*>(call.data),
                              static_cast<size_t>(std::max<ssize_t>(call.size, 0)));
            event.at = call.at >= 0 ? call.at : stands;
            stands += call.at >= 0 ? 0 : static_cast<off_t>(event.data.size());
        }
        s_events.push_back(std::move(event));
        if (call.kind == FileCall::CLOSE) {
            s_open.erase(file);
        }
    }

    // What is elsewhere, or opened for reading, is passed over.
    static void TakePath(const FileCall& call) {
        const std::string path = call.path;
        if ((path + "/").rfind(s_directory, 0) != 0) {
            return;
        }
        const std::string name = path.substr(std::min(path.size(), s_directory.size()));
        const bool mayChange = (call.flags & O_ACCMODE) != O_RDONLY || name.empty();
        if (call.kind == FileCall::REMOVE) {
            s_events.push_back({call.kind, name});
        } else if (call.fd >= 0 && mayChange) {
            s_open[call.fd] = {name, 0};
            s_events.push_back({call.kind, name, call.isNew, (call.flags & O_TRUNC) != 0});
        }
    }

    static inline std::mutex s_mutex{};      // guards what follows
    static inline std::string s_directory{}; // and a slash
    static inline std::vector<Event> s_events{};
    static inline std::map<int, std::pair<std::string, off_t>> s_open{}; // names, and where each stands
};

// What the disk holds of a file, as far as the file system has promised it.
struct DiskFile {
    using Content = std::optional<std::string>; // nothing: the directory has no such file

    Content now;                 // as programs see it
    bool isFound = true;         // its entry was synced with the directory
    std::set<Content> left{now}; // any of these, after a cut
};

// A file system that brings the changes of one file to the disk in their order, when it likes or is told to
// sync, and each of them partly: the length grows with the bytes or before them. Files and the entries of the
// directory come there independently of each other.
class Disk {
public:
    void Put(const std::string& name, const std::string& content) {
        m_files[name] = {content, true, {content}};
    }
    const std::map<std::string, DiskFile>& Files() const { return m_files; }

    void Apply(const Event& event) {
        if (event.name.empty()) {
            if (event.kind == FileCall::SYNC) {
                SyncDirectory();
            }
            return;
        }
        DiskFile& file = m_files[event.name];
        if (event.kind == FileCall::OPEN && (event.isNew || event.isTruncated)) {
            if (event.isNew) {
                file.isFound = false;
                file.left.insert(std::nullopt);
            }
            file.now = "";
            file.left.insert(file.now);
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

private:
    static constexpr size_t BLOCK = 4096; // a file system writes whole ones

    // Nothing, one byte, each number of blocks, all but one byte or all of it; the rest is missing or zero.
    static void Write(DiskFile& file, const Event& event) {
        const size_t size = event.data.size();
        std::set<size_t> cuts{0, std::min<size_t>(1, size), size - std::min<size_t>(1, size), size};
        for (size_t cut = BLOCK; cut < size; cut += BLOCK) {
            cuts.insert(cut);
        }
        const auto overlaid = [&, before = *file.now](const std::string& bytes) {
            const auto begin = static_cast<size_t>(event.at);
            std::string content = before;
            content.resize(std::max(content.size(), begin + bytes.size()));
            return content.replace(begin, bytes.size(), bytes);
        };
        for (const size_t cut : cuts) {
            const std::string kept = event.data.substr(0, cut);
            file.left.insert(overlaid(kept));
            file.left.insert(overlaid(kept + std::string(size - cut, '\0')));
        }
        file.now = overlaid(event.data);
    }

    void SyncDirectory() {
        for (auto& [name, file] : m_files) {
            file.isFound = true;
            file.left.erase(std::nullopt);
            if (!file.now) {
                file.left = {std::nullopt};
            }
        }
    }

    std::map<std::string, DiskFile> m_files;
};

} // namespace Endurance

#endif
