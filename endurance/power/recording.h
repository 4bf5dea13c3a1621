// The calls that change the files of one directory, and what a power cut after each of them leaves.
#ifndef POWER_RECORDING_H
#define POWER_RECORDING_H

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "support/injection.h"
#include "tracked_item.h"

namespace Endurance {

using FaultTest::FileCall;

// A call, or what was known of the item from then on.
struct Event {
    FileCall::Kind kind;
    std::string name; // of the file; empty for the directory itself
    bool isNew;
    bool isTruncated;
    off_t at;
    std::string data;
    std::shared_ptr<const TrackedItem> known;
};

// Records from its construction until Take, by whatever thread the calls are made. One at a time.
class Recording {
public:
    explicit Recording(const std::string& directory);
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
    ~Recording() { Take(); }

    static void Mark(const TrackedItem& item);
    static std::vector<Event> Take();
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
    void Apply(const Event& event);
    const std::map<std::string, DiskFile>& Files() const { return m_files; }

private:
    void Open(DiskFile& file, const Event& event) const;
    static void Write(DiskFile& file, const Event& event);
    void SyncDirectory();

    std::map<std::string, DiskFile> m_files;
};

} // namespace Endurance

#endif
