#include "tracked_item.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "appcfg/error.h"

namespace Endurance {

namespace {

using SystemServer::ConfigBackupStrategy;
using SystemServer::ConfigSaveStrategy;
using SystemServer::ConfigStorageType;

std::string Shown(const std::optional<int64_t>& number) {
    return number ? std::to_string(*number) : "cut";
}

} // namespace

TrackedItem::TrackedItem(const appcfg::Handle& handle, const Format& format, const Strategies& strategies,
                         const Document& document) :
    m_description{handle},
    m_document(document) {
    m_description.storage = format.storage;
    ChooseStrategies(strategies);
    if (format.isEncrypted) {
        m_description.encryption = KeyOf(m_keyNumber);
    }
}

void TrackedItem::ChooseStrategies(const Strategies& strategies) {
    m_description.saveStrategy = strategies.save;
    m_description.backupStrategy = strategies.backup;
}

void TrackedItem::StandIn(const std::string& directory) {
    m_description.path = directory + "/" + m_description.handle.Name();
    m_description.backupPath = m_description.path + ".backup";
    m_description.defaultPath = m_description.path + ".default";
}

void TrackedItem::WriteFiles(Start start, bool mayLoseCopy) {
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

bool TrackedItem::IsInstant() const {
    return m_description.saveStrategy == ConfigSaveStrategy::INSTANT &&
           m_description.backupStrategy == ConfigBackupStrategy::INSTANT;
}

void TrackedItem::Create(appcfg::Connection& connection) {
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

void TrackedItem::Delete(appcfg::Connection& connection) {
    const int failures = FailuresBeforeEnd();
    Tell();
    Open(connection).Delete();
    NoteEnd(m_endSavesAlways ? Failures() : failures);
}

void TrackedItem::NoteEnd(int failedBefore) {
    if (IsSaved() && Failures() == failedBefore) {
        m_ledger.Save();
    } else {
        NoteCrash();
    }
    Tell();
}

// After a key change that was cut off, with the new key, and with the old one if that does not bring the
// values back; a refusal has put the default in place of the file, and the backup goes there first. A timing
// strategy that hurries would overwrite the backup between the two: the item is one that acts on changes
// alone.
std::string TrackedItem::Recover(appcfg::Connection& connection) {
    appcfg::ItemDescription description = m_description;
    if (m_otherKey) {
        description.saveStrategy = ConfigSaveStrategy::INSTANT;
        description.backupStrategy = ConfigBackupStrategy::INSTANT;
        m_description.encryption.swap(*m_otherKey);
    }
    std::string trouble;
    for (int left = m_otherKey ? 2 : 1; left > 0; --left) {
        try {
            description.encryption = m_description.encryption;
            connection.Create(description).Release();
            if (HoldsSaved(connection)) {
                return "";
            }
            trouble = "another value: " + Describe();
        } catch (const appcfg::RequestRefused& refused) {
            trouble = refused.what() + ("; " + Describe());
            std::error_code ignored; // there may be none
            std::filesystem::copy_file(m_description.backupPath, m_description.path,
                                       std::filesystem::copy_options::overwrite_existing, ignored);
        }
        if (m_otherKey) {
            m_description.encryption.swap(*m_otherKey);
        }
    }
    return trouble;
}

void TrackedItem::Send(appcfg::Connection& connection, bool isRaw,
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

void TrackedItem::SendRaw(appcfg::Connection& connection) {
    Send(connection, true,
         [this](appcfg::Item& item, int64_t number) { item.SetRaw("", m_document.RawText(number)); });
}

void TrackedItem::SendFragment(appcfg::Connection& connection) {
    Send(connection, true, [this](appcfg::Item& item, int64_t number) {
        const auto [key, text] = m_document.Fragment(number);
        item.SetRaw(key, text);
    });
}

void TrackedItem::SendSet(appcfg::Connection& connection) {
    Send(connection, false,
         [this](appcfg::Item& item, int64_t number) { item.SetMany(m_document.Values(number)); });
}

// Without a backup strategy there is no default, and the file is loaded again.
void TrackedItem::Restore(appcfg::Connection& connection) {
    const int failures = Failures();
    if (IsWritten() && IsBackedUp()) {
        m_ledger.SendDefault();
    }
    Tell();
    Open(connection).Restore();
    if (!IsSaved() && !IsBackedUp()) {
        m_ledger.Lose();
    } else if (Failures() == failures) {
        if (IsBackedUp()) {
            m_ledger.Accept();
        }
        m_ledger.Save();
    }
    Tell();
}

void TrackedItem::ChangeKey(appcfg::Connection& connection, const Key& key) {
    const int failures = Failures();
    m_otherKey = key;
    Tell();
    try {
        if (key) {
            Open(connection).ChangeKey(*key);
        } else {
            Open(connection).ChangeToPlain();
        }
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

Key TrackedItem::NextKey() const {
    return m_description.storage == ConfigStorageType::XML ? Key(KeyOf(m_keyNumber + 1)) : std::nullopt;
}

std::string TrackedItem::SaveWhole(appcfg::Connection& connection) {
    SendRaw(connection);
    Delete(connection);
    const Files files = LookAtFiles();
    return !IsWritten() || (files.file == m_ledger.Sent() && files.backup == m_ledger.Sent())
               ? ""
               : "the next save is not whole: " + Describe();
}

std::vector<Key> TrackedItem::Keys() const {
    std::vector<Key> keys{m_description.encryption};
    if (m_otherKey) {
        keys.push_back(*m_otherKey);
    }
    return keys;
}

void TrackedItem::ChooseKey() {
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

std::optional<int64_t> TrackedItem::NumberIn(const std::string& path) const {
    for (const Key& key : Keys()) {
        if (const auto number = m_document.NumberIn(path, key)) {
            return number;
        }
    }
    return std::nullopt;
}

Files TrackedItem::LookAtFiles() {
    m_files = Look();
    if (m_files.file && m_files.backup) {
        m_ledger.SaveWhatStands(std::min(*m_files.file, *m_files.backup));
    }
    return m_files;
}

std::optional<int64_t> TrackedItem::Found(appcfg::Connection& connection) {
    const appcfg::Item item = Open(connection);
    std::vector<std::string> keys;
    for (const auto& [key, value] : m_document.Values(0)) {
        keys.push_back(key);
    }
    std::optional<int64_t> number = m_document.NumberOfValues(item.GetMany(keys));
    if (IsWritten() && number != m_document.NumberOf(item.GetRaw())) {
        number.reset();
    }
    m_found = Shown(number);
    return number;
}

bool TrackedItem::HoldsSaved(appcfg::Connection& connection) {
    const std::optional<int64_t> number = Found(connection);
    return number && m_ledger.Allows(*number);
}

std::string TrackedItem::Describe() const {
    return m_description.handle.Name() + ": saved " + std::to_string(m_ledger.Saved()) + ", accepted " +
           std::to_string(m_ledger.Accepted()) + ", sent " + std::to_string(m_ledger.Sent()) + ", found " +
           m_found + "; last look: file " + Shown(m_files.file) + ", backup " + Shown(m_files.backup);
}

} // namespace Endurance
