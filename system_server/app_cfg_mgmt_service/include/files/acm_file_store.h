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
    bool isTorn = false; // never for a device, nor for a file system that cannot sync

    bool IsWhole() const { return failed != OPEN && !isTorn; }
};

// The one place that writes files: opens with truncation, writes once, syncs and closes. After creating a
// file it syncs the directory too.
AcmWriting WriteInPlace(const std::string& data, const std::string& path, mode_t mode);

// Logs the step that failed, if any.
void LogWriting(const AcmWriting& writing, size_t bytes, const std::string& path);

// False when a write of so many bytes in place of the file's own is sure to fail for want of disk space. True
// also when that cannot be known: for a missing file, for one that is no regular file, on a file system that
// cannot reserve space, and for a quota on a disk with free space.
bool HasDiskSpaceFor(size_t bytes, const std::string& path);

// An item's configuration file and its backup copy.
//
// Both are written in place, so that they keep owner, mode and links: a crash or a failed write leaves its
// file torn (cut or empty), and the other copy is then the only good one. Hence:
// 1. A file is not touched when the disk lacks space for the text, or a limit forbids so long a file.
// 2. If the other copy is torn, it is rewritten first.
// 3. If that fails, this is the only good copy. It is overwritten only where the same fault cannot tear it
//    too, since the torn copy cannot be opened at all or lies on another file system.
// Each copy knows the number of the change whose text it holds. A copy that is behind the newest change is
// written when the item ends.
//
// Owned by the item's manager, and guarded by its m_fileMutex together with the two paths.
class AcmFileStore {
public:
    enum Copy { CFG, BACKUP };

    // Refers to the manager's paths as they change. An empty path means that there is no such copy.
    AcmFileStore(const std::string& cfgPath, const std::string& backupPath) :
        m_paths{&cfgPath, &backupPath} {}

    // Writes the text of this change to the copy; if the other copy is torn, to that one first.
    void Write(Copy copy, const std::string& text, uint32_t change);

    // The copy is whole and holds the text of this change.
    void NoteWhole(Copy copy, uint32_t change) { m_copies[copy] = {change, false, false, 0}; }
    // The copy was found torn. Unlike a copy that this store tore, it does not count as behind: it may hold
    // something that no other file has.
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
