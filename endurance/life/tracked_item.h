// An item, and what is known of it.
#ifndef LIFE_TRACKED_ITEM_H
#define LIFE_TRACKED_ITEM_H

#include <functional>

#include "appcfg/connection.h"
#include "appcfg/error.h"
#include "document.h"
#include "ledger.h"

namespace Endurance {

using SystemServer::ConfigStrategy;

struct Strategies {
    ConfigStrategy save;
    ConfigStrategy backup;
};

// What there is when an item's first life begins: file and backup of different age, the backup alone, the
// backup and a torn file, neither. The default is always there.
enum class Start { GOOD, MISSING, BROKEN, NEITHER };

// What a look at the files found; nothing where a file is cut.
struct Files {
    std::optional<int64_t> file;
    std::optional<int64_t> backup;
};

inline std::string Shown(const std::optional<int64_t>& number) {
    return number ? std::to_string(*number) : "cut";
}

// One item through all lives of its service, with the ledger of its numbers and the key of its files.
// Requests throw what the client library does. A plain value, used by one thread.
class TrackedItem {
public:
    TrackedItem(const appcfg::Handle& handle, const Format& format, const Strategies& strategies,
                const Document& document) :
        m_description{handle},
        m_document(document) {
        m_description.storage = format.storage;
        ChooseStrategies(strategies);
        if (format.isEncrypted) {
            m_description.encryption = KeyOf(m_keyNumber);
        }
    }

    // Its three files are those of the directory.
    void StandIn(const std::string& directory) {
        m_description.path = directory + "/" + m_description.handle.Name();
        m_description.backupPath = m_description.path + ".backup";
        m_description.defaultPath = m_description.path + ".default";
    }

    // Makes them. Where the best copy may be lost to what comes, the next one is as good.
    void WriteFiles(Start start, bool mayLoseCopy) {
        constexpr int64_t BACKUP_NUMBER = 1;
        constexpr int64_t FILE_NUMBER = 2;
        const auto write = [this](const std::string& path, int64_t number) {
            m_document.WriteFile(path, number, m_description.encryption);
        };
        for (const std::string& path : {m_description.path, m_description.backupPath}) {
            std::filesystem::remove(path);
        }
        std::vector<int64_t> held{DEFAULT_NUMBER};
        write(m_description.defaultPath, DEFAULT_NUMBER);
        if (start != Start::NEITHER) {
            write(m_description.backupPath, held.emplace_back(BACKUP_NUMBER));
        }
        if (start == Start::GOOD) {
            write(m_description.path, held.emplace_back(FILE_NUMBER));
        } else if (start == Start::BROKEN) {
            std::ofstream(m_description.path) << "<life>{";
        }
        const size_t sure = std::min<size_t>(held.size(), mayLoseCopy ? 2 : 1);
        m_ledger = Ledger({held.end() - static_cast<std::ptrdiff_t>(sure), held.end()});
    }

    // Before a creation.
    void ChooseStrategies(const Strategies& strategies) {
        m_description.saveStrategy = strategies.save;
        m_description.backupStrategy = strategies.backup;
    }

    // Who is told before each request and when what is known has changed; by a caller whose calls fail, how
    // many have failed so far, and whether a deletion or creation that succeeds has saved nevertheless.
    std::function<void(const TrackedItem&)> m_tell{};
    std::function<int()> m_failures{};
    bool m_endSavesAlways = false;

    // Over a live item, a creation saves that first, as its deletion does.
    void Create(appcfg::Connection& connection) {
        const int failures = FailuresBeforeEnd();
        Tell();
        try {
            connection.Create(m_description).Release();
        } catch (const appcfg::RequestRefused&) {
            if (Failures() != failures) {
                NoteCrash(); // what it was to replace may have ended unsaved
            }
            throw;
        }
        NoteEnd(m_endSavesAlways ? Failures() : failures);
    }

    void Delete(appcfg::Connection& connection) {
        const int failures = FailuresBeforeEnd();
        Tell();
        Open(connection).Delete();
        NoteEnd(m_endSavesAlways ? Failures() : failures);
    }

    // It ended with its connection or its service. Failed before is how many calls had by then.
    void NoteEnd(int failedBefore) {
        if (IsSaved() && Failures() == failedBefore) {
            m_ledger.Save();
        } else {
            NoteCrash();
        }
        Tell();
    }

    // Its service crashed: what was accepted and not saved is lost or not.
    void NoteCrash() { IsSaved() ? m_ledger.End() : m_ledger.Lose(); }

    // Creates it as a client does after a crash; what is wrong then, or nothing when it holds what it may.
    // After a key change that was cut off the files say which key it is: a creation with the wrong one
    // overwrites the file.
    // The item is one that acts on changes alone: a strategy that hurries would write while the creation
    // still looks at the files, which a minute's pause never does.
    std::string Recover(appcfg::Connection& connection) {
        ChooseKey();
        appcfg::ItemDescription description = m_description;
        description.saveStrategy = ConfigStrategy::INSTANT;
        description.backupStrategy = ConfigStrategy::INSTANT;
        try {
            connection.Create(description).Release();
            return HoldsSaved(connection) ? "" : "another value: " + Describe();
        } catch (const appcfg::RequestRefused& refused) {
            return refused.what() + ("; " + Describe());
        }
    }

    // Sends the next number: by a raw set of the whole document, by one of a fragment (in a document with one
    // place), by a set of each value.
    void SendRaw(appcfg::Connection& connection) {
        Send(connection, true,
             [this](appcfg::Item& item, int64_t number) { item.SetRaw("", m_document.RawText(number)); });
    }

    void SendFragment(appcfg::Connection& connection) {
        Send(connection, true, [this](appcfg::Item& item, int64_t number) {
            const auto [key, text] = m_document.Fragment(number);
            item.SetRaw(key, text);
        });
    }

    void SendSet(appcfg::Connection& connection) {
        Send(connection, false,
             [this](appcfg::Item& item, int64_t number) { item.SetMany(m_document.Values(number)); });
    }

    // Without a backup strategy there is no default, and the file is loaded again. Unless its strategy saves
    // when it is stopped, what was set last may not be there yet: then it is lost or not.
    void Restore(appcfg::Connection& connection) {
        const int failures = Failures();
        if (IsWritten() && IsBackedUp()) {
            m_ledger.SendDefault();
        }
        Tell();
        Open(connection).Restore();
        if (!IsSaved() && !IsBackedUp()) {
            m_ledger.Lose();
        } else if (!IsReloadedByRestore() && Failures() == failures) {
            if (IsBackedUp()) {
                m_ledger.Accept();
            }
            m_ledger.Save();
        }
        Tell();
    }

    // To that key, or to none.
    void ChangeKey(appcfg::Connection& connection, const Key& key) {
        const int failures = Failures();
        m_otherKey = key;
        Tell();
        try {
            key ? Open(connection).ChangeKey(*key) : Open(connection).ChangeToPlain();
        } catch (const appcfg::RequestRefused& refused) {
            if (refused.Status() == 404 || Failures() == failures) {
                m_otherKey.reset();
            }
            throw;
        }
        m_otherKey.reset();
        if (IsWritten()) {
            ++m_keyNumber;
            m_description.encryption = key;
            m_ledger.Save();
        }
        Tell();
    }

    // A new one for a format that can be encrypted from its creation on.
    Key NextKey() const {
        return m_description.storage == ConfigStorageType::XML ? Key(KeyOf(m_keyNumber + 1)) : std::nullopt;
    }

    // Sends one more number and deletes the item; what is wrong, or nothing when both files hold that number.
    std::string SaveWhole(appcfg::Connection& connection) {
        SendRaw(connection);
        Delete(connection);
        const Files files = LookAtFiles();
        return !IsWritten() || (files.file == m_ledger.Sent() && files.backup == m_ledger.Sent())
                   ? ""
                   : "the next save is not whole: " + Describe();
    }

    // Without the service; what was cut off in a key change is looked at in both keys.
    Files Look() const { return {NumberIn(m_description.path), NumberIn(m_description.backupPath)}; }
    // The same while the service does not have the item. When both files are whole, what both hold cannot be
    // lost.
    Files LookAtFiles() {
        m_files = Look();
        if (m_files.file && m_files.backup) {
            m_ledger.SaveWhatStands(std::min(*m_files.file, *m_files.backup));
        }
        return m_files;
    }

    // What both held when a save was finished.
    void NoteStanding(int64_t number) { m_ledger.SaveWhatStands(number); }

    // After a key change that was cut off the files may be in either key.
    std::vector<Key> Keys() const {
        std::vector<Key> keys{m_description.encryption};
        if (m_otherKey) {
            keys.push_back(*m_otherKey);
        }
        return keys;
    }

    // In the key of the first of them that is whole from now on.
    void ChooseKey() {
        for (const std::string& path :
             {m_description.path, m_description.backupPath, m_description.defaultPath}) {
            if (m_document.NumberIn(path, m_description.encryption)) {
                return;
            }
            if (m_otherKey && m_document.NumberIn(path, *m_otherKey)) {
                m_description.encryption.swap(*m_otherKey);
                return;
            }
        }
    }

    // The number that the service holds, by its values and as a fragment; nothing when they are mixed.
    std::optional<int64_t> Found(appcfg::Connection& connection) {
        const appcfg::Item item = Open(connection);
        std::vector<std::string> keys;
        for (const auto& [key, value] : m_document.Values(0)) {
            keys.push_back(key);
        }
        std::string values;
        for (const std::string& value : item.GetMany(keys)) {
            values += value;
        }
        std::optional<int64_t> number = m_document.NumberOfValues(values);
        if (IsWritten() && number != m_document.NumberOf(item.GetRaw())) {
            number.reset();
        }
        m_found = Shown(number);
        return number;
    }

    // Whether that is one that it may hold.
    bool HoldsSaved(appcfg::Connection& connection) {
        const std::optional<int64_t> number = Found(connection);
        return number && m_ledger.Allows(*number);
    }

    // The ledger and the files as one line.
    std::string Describe() const {
        return m_description.handle.Name() + ": saved " + std::to_string(m_ledger.Saved()) + ", accepted " +
               std::to_string(m_ledger.Accepted()) + ", sent " + std::to_string(m_ledger.Sent()) +
               ", found " + m_found + "; last look: file " + Shown(m_files.file) + ", backup " +
               Shown(m_files.backup);
    }

    appcfg::Item Open(appcfg::Connection& connection) const { return connection.Open(m_description.handle); }
    const appcfg::ItemDescription& Description() const { return m_description; }
    const Document& GetDocument() const { return m_document; }
    const Ledger& GetLedger() const { return m_ledger; }
    // A raw set is then written when it is answered.
    bool IsInstant() const {
        return m_description.saveStrategy == ConfigStrategy::INSTANT &&
               (m_description.backupStrategy == ConfigStrategy::INSTANT || !IsBackedUp());
    }

    // And by nothing else, so that what was set last is lost or not.
    bool IsReloadedByRestore() const { return IsWritten() && IsInstant() && !IsBackedUp(); }
    bool IsWritten() const { return m_description.storage != ConfigStorageType::INI; }
    bool IsSaved() const { return IsWritten() && m_description.saveStrategy != ConfigStrategy::NONE; }
    // As the last look found them.
    bool HasCutFile() const { return !m_files.file; }
    bool HasCutBackup() const { return !m_files.backup; }

private:
    // An INI item takes raw sets to a section; its values stay.
    void Send(appcfg::Connection& connection, bool isRaw,
              const std::function<void(appcfg::Item&, int64_t)>& request) {
        const bool isCounted = IsWritten() || !isRaw;
        const int64_t number = isCounted ? m_ledger.Next() : 0;
        const int failures = m_failuresAtChange = Failures();
        Tell();
        appcfg::Item item = Open(connection);
        request(item, number);
        if (isCounted) {
            m_ledger.Accept();
        }
        if (isRaw && IsWritten() && IsInstant() && Failures() == failures) {
            m_ledger.Save();
        }
        Tell();
    }

    bool IsBackedUp() const { return m_description.backupStrategy != ConfigStrategy::NONE; }
    int Failures() const { return m_failures ? m_failures() : 0; }
    int FailuresBeforeEnd() const { return IsInstant() ? m_failuresAtChange : Failures(); }
    void Tell() const {
        if (m_tell) {
            m_tell(*this);
        }
    }
    std::optional<int64_t> NumberIn(const std::string& path) const {
        for (const Key& key : Keys()) {
            if (const auto number = m_document.NumberIn(path, key)) {
                return number;
            }
        }
        return std::nullopt;
    }

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
