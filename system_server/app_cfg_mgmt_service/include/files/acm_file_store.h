#ifndef ACM_FILE_STORE_H
#define ACM_FILE_STORE_H

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace SystemServer {

// What became of one write in place.
struct AcmWriting {
    enum Step { NONE, OPEN, WRITE, SYNC };
    Step failed = NONE;
    int error = 0; // of the step that failed
    ssize_t written = 0;
    bool isTorn = false; // not of a device, nor where the file system has nothing to sync with

    bool IsWhole() const { return failed != OPEN && !isTorn; }
};

// The one place that writes files: opens with truncation, writes once, syncs and closes, and syncs the
// directory of a file that came to be.
AcmWriting WriteInPlace(const std::string& data, const std::string& path, mode_t mode);

// A line for the step that failed, if any, of a write of so many bytes.
void LogWriting(const AcmWriting& writing, size_t bytes, const std::string& path);

// False when the file is sure not to take so many bytes in place of its own. True also for what cannot be
// told: a missing file, one that is no regular file, a file system that reserves no room, a quota on a disk
// with room.
bool HasRoomFor(size_t bytes, const std::string& path);

// An item's configuration file and its backup copy.
//
// Both are written in place, so that they keep owner, mode and links: a crash or a failed write leaves its
// file torn, and the other copy is then all there is. Hence:
// 1. A file is left as it is when the disk has no room for the text, or the process may not write as much.
// 2. While one copy is torn, it is written before the other.
// 3. While it stays torn, the other one is the last, and is overwritten only where the same fault cannot tear
// it
//    too: the torn one cannot even be opened, or lies on another file system.
// Each copy knows the number of the change whose text it holds: what is behind is written when the item ends.
//
// Owned by the item's manager, and guarded by its m_fileMutex together with the two paths.
class AcmFileStore {
public:
    enum Copy { CFG, BACKUP };

    // The paths are the manager's own; an empty one is no copy.
    AcmFileStore(const std::string& cfgPath, const std::string& backupPath) :
        m_paths{&cfgPath, &backupPath} {}

    // Writes the text of this change to the copy, and to the other one before it if that is torn.
    void Write(Copy copy, const std::string& text, uint32_t change);

    // The copy is whole and holds the text of this change.
    void NoteWhole(Copy copy, uint32_t change) { m_copies[copy] = {change, false, false, 0}; }
    // The copy was found torn: that alone is no reason to write it, since it may hold what nothing else has.
    void NoteTorn(Copy copy) { m_copies[copy].isTorn = true; }

    bool IsTorn(Copy copy) const { return m_copies[copy].isTorn; }
    // Whether the copy lacks the text of this change, or has lost it to a write that failed.
    bool IsBehind(Copy copy, uint32_t change) const;
    // Why the copy could not be opened when it was last written, or 0.
    int OpenError(Copy copy) const { return m_copies[copy].openError; }

private:
    struct State {
        uint32_t change;
        bool isTorn;
        bool isLost; // torn by a write of this store
        int openError;
    };

    bool WriteCopy(Copy copy, const std::string& text, uint32_t change);
    bool MayOverwriteLast(Copy last, Copy torn) const;
    const std::string& PathOf(Copy copy) const { return *m_paths[copy]; }

    const std::string* const m_paths[2];
    State m_copies[2] = {};
};

} // namespace SystemServer

#endif
