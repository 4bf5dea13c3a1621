// An item, and what is known of it.
#ifndef CRASH_TRACKED_ITEM_H
#define CRASH_TRACKED_ITEM_H

#include <cstdint>
#include <optional>
#include <string>

#include "appcfg/connection.h"
#include "counts.h"
#include "document.h"

namespace Endurance {

enum class Format { JSON, XML, ENCRYPTED_XML };

// What a look at the files found; nothing where a file is cut.
struct Files {
    std::optional<int64_t> file;
    std::optional<int64_t> backup;
};

// One item through all lives of its service, with a ledger of numbers: what was reported as saved, what the
// service accepted in this life, and what was sent. Requests throw what the client library does.
// Owned and used by one lane.
class TrackedItem {
public:
    // Its three files stand in the directory; the default file is written here.
    TrackedItem(const std::string& directory, Format format, Strategy strategy);

    void Create(appcfg::Connection& connection);
    void Delete(appcfg::Connection& connection);

    // Sends the next number, by a raw set of the whole document or by a set of each value.
    void SendRaw(appcfg::Connection& connection);
    void SendSet(appcfg::Connection& connection);

    // What the service accepted in this life is saved now.
    void NoteSaved();

    // While the service does not have the item. When both files are whole, what both hold cannot be lost.
    Files LookAtFiles();

    // Whether the service, after its start or the item's end, holds what it may: no state that is cut or
    // mixed, none older than what was saved, none never sent, not the default.
    bool HoldsSaved(appcfg::Connection& connection);

    // After a loss: the ledger begins anew with what is there.
    void AcceptLoss();

    // The ledger and the files as one line.
    std::string Describe() const;

    const appcfg::ItemDescription& Description() const { return m_description; }
    Strategy GetStrategy() const { return m_strategy; }
    // As the last look found them.
    bool HasCutFile() const { return !m_files.file; }
    bool HasCutBackup() const { return !m_files.backup; }
    bool HasChangedFile() const { return m_files.file && *m_files.file != DEFAULT_NUMBER; }

private:
    appcfg::Item Open(appcfg::Connection& connection) const;

    const Strategy m_strategy;
    const appcfg::ItemDescription m_description;
    const Document m_document;
    int64_t m_saved = DEFAULT_NUMBER;
    int64_t m_accepted = DEFAULT_NUMBER;
    int64_t m_sent = 0;
    std::string m_found{}; // as the service told it last
    Files m_files{};
};

} // namespace Endurance

#endif
