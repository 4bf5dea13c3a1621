// An item, and what is known of it.
#ifndef LIFE_TRACKED_ITEM_H
#define LIFE_TRACKED_ITEM_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "appcfg/connection.h"
#include "document.h"
#include "ledger.h"

namespace Endurance {

struct Strategies {
    SystemServer::ConfigSaveStrategy save;
    SystemServer::ConfigBackupStrategy backup;
};

// What there is when an item's first life begins: file and backup of different age, the backup alone, the
// backup and a torn file, neither. The default is always there.
enum class Start { GOOD, MISSING, BROKEN, NEITHER };

// What a look at the files found; nothing where a file is cut.
struct Files {
    std::optional<int64_t> file;
    std::optional<int64_t> backup;
};

// One item through all lives of its service, with the ledger of its numbers and the key of its files.
// Requests throw what the client library does. A plain value, used by one thread.
class TrackedItem {
public:
    TrackedItem(const appcfg::Handle& handle, const Format& format, const Strategies& strategies,
                const Document& document);

    // Its three files are those of the directory.
    void StandIn(const std::string& directory);
    // Makes them. Where the best copy may be lost to what comes, the next one is as good.
    void WriteFiles(Start start, bool mayLoseCopy);
    // Before a creation.
    void ChooseStrategies(const Strategies& strategies);

    // Who is told before each request and when what is known has changed; by a caller whose calls fail, how
    // many have failed so far, and whether a deletion or creation that succeeds has saved nevertheless.
    std::function<void(const TrackedItem&)> m_tell{};
    std::function<int()> m_failures{};
    bool m_endSavesAlways = false;

    // Over a live item, a creation saves that first, as its deletion does.
    void Create(appcfg::Connection& connection);
    void Delete(appcfg::Connection& connection);
    // It ended with its connection or its service. Failed before is how many calls had by then.
    void NoteEnd(int failedBefore);

    // Its service crashed: what was accepted and not saved is lost or not.
    void NoteCrash() { IsSaved() ? m_ledger.End() : m_ledger.Lose(); }
    // Creates it as a client does after a crash; what is wrong then, or nothing when it holds what it may.
    std::string Recover(appcfg::Connection& connection);

    // Sends the next number: by a raw set of the whole document, by one of a fragment (in a document with one
    // place), by a set of each value.
    void SendRaw(appcfg::Connection& connection);
    void SendFragment(appcfg::Connection& connection);
    void SendSet(appcfg::Connection& connection);
    void Restore(appcfg::Connection& connection);
    // To that key, or to none.
    void ChangeKey(appcfg::Connection& connection, const Key& key);
    // A new one for a format that can be encrypted from its creation on.
    Key NextKey() const;
    // Sends one more number and deletes the item; what is wrong, or nothing when both files hold that number.
    std::string SaveWhole(appcfg::Connection& connection);

    // Without the service; what was cut off in a key change is looked at in both keys.
    Files Look() const { return {NumberIn(m_description.path), NumberIn(m_description.backupPath)}; }
    // The same while the service does not have the item. When both files are whole, what both hold cannot be
    // lost.
    Files LookAtFiles();
    // What both held when a save was finished.
    void NoteStanding(int64_t number) { m_ledger.SaveWhatStands(number); }

    // After a key change that was cut off the files may be in either key.
    std::vector<Key> Keys() const;
    // In the key of the first of them that is whole from now on.
    void ChooseKey();

    // The number that the service holds, by its values and as a fragment; nothing when they are mixed.
    std::optional<int64_t> Found(appcfg::Connection& connection);
    // Whether that is one that it may hold.
    bool HoldsSaved(appcfg::Connection& connection);

    // After a loss: the ledger begins anew with what is there.
    void AcceptLoss() { m_ledger = Ledger({DEFAULT_NUMBER}); }

    // The ledger and the files as one line.
    std::string Describe() const;

    appcfg::Item Open(appcfg::Connection& connection) const { return connection.Open(m_description.handle); }
    const appcfg::ItemDescription& Description() const { return m_description; }
    const Document& GetDocument() const { return m_document; }
    const Ledger& GetLedger() const { return m_ledger; }
    bool IsInstant() const;
    bool IsWritten() const { return m_description.storage != SystemServer::ConfigStorageType::INI; }
    bool IsSaved() const {
        return IsWritten() && m_description.saveStrategy != SystemServer::ConfigSaveStrategy::NONE;
    }
    // As the last look found them.
    bool HasCutFile() const { return !m_files.file; }
    bool HasCutBackup() const { return !m_files.backup; }
    bool HasChangedFile() const { return m_files.file && *m_files.file != DEFAULT_NUMBER; }

private:
    // An INI item takes raw sets to a section; its values stay.
    void Send(appcfg::Connection& connection, bool isRaw,
              const std::function<void(appcfg::Item&, int64_t)>& request);
    bool IsBackedUp() const {
        return m_description.backupStrategy != SystemServer::ConfigBackupStrategy::NONE;
    }
    int Failures() const { return m_failures ? m_failures() : 0; }
    int FailuresBeforeEnd() const { return IsInstant() ? m_failuresAtChange : Failures(); }
    void Tell() const {
        if (m_tell) {
            m_tell(*this);
        }
    }
    std::optional<int64_t> NumberIn(const std::string& path) const;

    appcfg::ItemDescription m_description;
    Document m_document;
    Ledger m_ledger{{DEFAULT_NUMBER}};
    unsigned m_keyNumber = 1;
    std::optional<Key> m_otherKey{};
    int m_failuresAtChange = 0;
    std::string m_found{}; // as the service told it last
    Files m_files{};
};

} // namespace Endurance

#endif
