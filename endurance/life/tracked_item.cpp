#include "tracked_item.h"

#include <algorithm>
#include <filesystem>

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

TrackedItem::TrackedItem(const std::string& name, const Format& format, const Strategies& strategies,
                         const Document& document) :
    m_description{appcfg::Handle("life", name)},
    m_document(document), m_hasKey(format.storage == ConfigStorageType::XML) {
    m_description.storage = format.storage;
    m_description.saveStrategy = strategies.save;
    m_description.backupStrategy = strategies.backup;
    if (format.isEncrypted) {
        m_description.encryption = KeyOf(m_keyNumber);
    }
}

void TrackedItem::StandIn(const std::string& directory) {
    m_description.path = directory + "/" + m_description.handle.Name();
    m_description.backupPath = m_description.path + ".backup";
    m_description.defaultPath = m_description.path + ".default";
}

bool TrackedItem::IsInstant() const {
    return m_description.saveStrategy == ConfigSaveStrategy::INSTANT &&
           m_description.backupStrategy == ConfigBackupStrategy::INSTANT;
}

appcfg::Item TrackedItem::Open(appcfg::Connection& connection) const {
    return connection.Open(m_description.handle);
}

void TrackedItem::Create(appcfg::Connection& connection) {
    const int failures = FailuresBeforeEnd();
    Tell();
    connection.Create(m_description).Release();
    NoteEnd(failures);
}

void TrackedItem::Delete(appcfg::Connection& connection) {
    const int failures = FailuresBeforeEnd();
    Tell();
    Open(connection).Delete();
    NoteEnd(failures);
}

void TrackedItem::NoteEnd(int failedBefore) {
    if (m_endSavesAlways || Failures() == failedBefore) {
        m_ledger.Save();
    } else {
        m_ledger.End();
    }
    Tell();
}

// After a key change that was cut off, with the new key, and with the old one if that does not bring the
// values back; a refusal has put the default in place of the file, and the backup goes there first.
std::string TrackedItem::Recover(appcfg::Connection& connection) {
    if (m_otherKey) {
        m_description.encryption.swap(*m_otherKey);
    }
    std::string trouble;
    for (int left = m_otherKey ? 2 : 1; left > 0; --left) {
        try {
            connection.Create(m_description).Release();
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

void TrackedItem::Send(appcfg::Connection& connection,
                       const std::function<void(appcfg::Item&, int64_t)>& request, bool isSavedAtOnce) {
    const int64_t number = IsWritten() ? m_ledger.Next() : 0;
    const int failures = m_failuresAtChange = Failures();
    Tell();
    appcfg::Item item = Open(connection);
    request(item, number);
    if (IsWritten()) {
        m_ledger.Accept();
    }
    if (isSavedAtOnce && Failures() == failures) {
        m_ledger.Save();
    }
    Tell();
}

void TrackedItem::SendRaw(appcfg::Connection& connection) {
    const auto request = [this](appcfg::Item& item, int64_t number) {
        item.SetRaw("", m_document.RawText(number));
    };
    Send(connection, request, IsInstant());
}

void TrackedItem::SendFragment(appcfg::Connection& connection) {
    const auto request = [this](appcfg::Item& item, int64_t number) {
        const auto [key, text] = m_document.Fragment(number);
        item.SetRaw(key, text);
    };
    Send(connection, request, IsInstant());
}

void TrackedItem::SendSet(appcfg::Connection& connection) {
    const auto request = [this](appcfg::Item& item, int64_t number) {
        item.SetMany(m_document.Values(number));
    };
    Send(connection, request, false);
}

void TrackedItem::Restore(appcfg::Connection& connection) {
    const int failures = Failures();
    if (IsWritten()) {
        m_ledger.SendDefault();
    }
    Tell();
    Open(connection).Restore();
    if (Failures() == failures) {
        m_ledger.Accept();
        m_ledger.Save();
    }
    Tell();
}

void TrackedItem::ChangeKey(appcfg::Connection& connection) {
    const int failures = Failures();
    m_otherKey = m_hasKey ? Key(KeyOf(m_keyNumber + 1)) : std::nullopt;
    Tell();
    try {
        if (m_hasKey) {
            Open(connection).ChangeKey(**m_otherKey);
        } else {
            Open(connection).ChangeToPlain();
        }
    } catch (const appcfg::RequestRefused& refused) {
        if (refused.Status() == 404 || Failures() == failures) {
            m_otherKey.reset();
        }
        throw;
    }
    ++m_keyNumber;
    m_description.encryption = *m_otherKey;
    m_otherKey.reset();
    m_ledger.Save();
    Tell();
}

std::vector<Key> TrackedItem::Keys() const {
    std::vector<Key> keys{m_description.encryption};
    if (m_otherKey) {
        keys.push_back(*m_otherKey);
    }
    return keys;
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
    m_files = {NumberIn(m_description.path), NumberIn(m_description.backupPath)};
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
