#include "tracked_item.h"

#include <algorithm>

namespace Endurance {

namespace {

using SystemServer::ConfigBackupStrategy;
using SystemServer::ConfigSaveStrategy;
using SystemServer::ConfigStorageType;

constexpr const char* FORMAT_NAMES[] = {"json", "xml", "secret"};
constexpr const char* STRATEGY_NAMES[] = {"instant", "delay", "timing"};

appcfg::ItemDescription MakeDescription(const std::string& directory, Format format, Strategy strategy) {
    const std::string name =
        std::string(FORMAT_NAMES[static_cast<size_t>(format)]) + "_" + STRATEGY_NAMES[strategy];
    appcfg::ItemDescription description{appcfg::Handle("crash", name)};
    description.storage = format == Format::JSON ? ConfigStorageType::JSON : ConfigStorageType::XML;
    description.path = directory + "/" + name;
    description.backupPath = description.path + ".backup";
    description.defaultPath = description.path + ".default";
    description.saveStrategy = static_cast<ConfigSaveStrategy>(strategy + 1);
    description.backupStrategy = static_cast<ConfigBackupStrategy>(strategy + 1);
    if (format == Format::ENCRYPTED_XML) {
        description.encryption = appcfg::EncryptionKey::FromHex(std::string(64, '7') + std::string(32, 'c'));
    }
    return description;
}

std::string Shown(const std::optional<int64_t>& number) {
    return number ? std::to_string(*number) : "cut";
}

} // namespace

TrackedItem::TrackedItem(const std::string& directory, Format format, Strategy strategy) :
    m_strategy(strategy), m_description(MakeDescription(directory, format, strategy)),
    m_document(m_description) {
    m_document.WriteFile(m_description.defaultPath, DEFAULT_NUMBER);
}

appcfg::Item TrackedItem::Open(appcfg::Connection& connection) const {
    return connection.Open(m_description.handle);
}

// A re-creation over a live item saves it first.
void TrackedItem::Create(appcfg::Connection& connection) {
    connection.Create(m_description).Release();
    NoteSaved();
}

void TrackedItem::Delete(appcfg::Connection& connection) {
    Open(connection).Delete();
    NoteSaved();
}

void TrackedItem::SendRaw(appcfg::Connection& connection) {
    const int64_t number = ++m_sent;
    Open(connection).SetRaw("", m_document.RawText(number));
    m_accepted = number;
    if (m_strategy == INSTANT) {
        NoteSaved();
    }
}

void TrackedItem::SendSet(appcfg::Connection& connection) {
    const int64_t number = ++m_sent;
    Open(connection).SetMany(m_document.Values(number));
    m_accepted = number;
}

void TrackedItem::NoteSaved() {
    m_saved = std::max(m_saved, m_accepted);
}

Files TrackedItem::LookAtFiles() {
    m_files = {m_document.NumberIn(m_description.path), m_document.NumberIn(m_description.backupPath)};
    if (m_files.file && m_files.backup) {
        m_saved = std::max(m_saved, std::min(*m_files.file, *m_files.backup));
    }
    m_accepted = m_saved;
    return m_files;
}

bool TrackedItem::HoldsSaved(appcfg::Connection& connection) {
    const std::optional<int64_t> number = m_document.NumberOf(Open(connection).GetRaw());
    m_found = Shown(number);
    return number && *number >= m_saved && *number <= m_sent && *number != DEFAULT_NUMBER;
}

void TrackedItem::AcceptLoss() {
    m_saved = DEFAULT_NUMBER;
    m_accepted = DEFAULT_NUMBER;
}

std::string TrackedItem::Describe() const {
    return m_description.handle.Name() + ": saved " + std::to_string(m_saved) + ", sent " +
           std::to_string(m_sent) + ", found " + m_found + "; last look: file " + Shown(m_files.file) +
           ", backup " + Shown(m_files.backup);
}

} // namespace Endurance
