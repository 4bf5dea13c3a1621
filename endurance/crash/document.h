// The documents that the crash harness writes: one number in many places, so that a cut or mixed state shows.
#ifndef CRASH_DOCUMENT_H
#define CRASH_DOCUMENT_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "appcfg/item_description.h"

namespace Endurance {

// What the default files hold; every number that is sent is greater.
constexpr int64_t DEFAULT_NUMBER = -1;

// A plain value: how one item's document looks and is stored.
class Document {
public:
    explicit Document(const appcfg::ItemDescription& description);

    // The text of a raw set of the empty key that puts the number everywhere.
    std::string RawText(int64_t number) const;

    // The same as one set: keys and values.
    std::vector<std::pair<std::string, std::string>> Values(int64_t number) const;

    // The number of a whole document; nothing for one that is cut, mixed or anything else.
    std::optional<int64_t> NumberOf(const std::string& text) const;

    // The number in a file as the service writes it; nothing for a missing, cut or unreadable one.
    std::optional<int64_t> NumberIn(const std::string& path) const;

    // Writes a file as the service would.
    void WriteFile(const std::string& path, int64_t number) const;

private:
    std::string FileText(int64_t number) const;

    bool m_isXml;
    std::optional<appcfg::EncryptionKey> m_key;
};

} // namespace Endurance

#endif
