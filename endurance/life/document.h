// The documents of endurance items: one number in several places, so that a cut or mixed state shows.
#ifndef LIFE_DOCUMENT_H
#define LIFE_DOCUMENT_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "appcfg/item_description.h"

namespace Endurance {

using Key = std::optional<appcfg::EncryptionKey>;

// The formats that items are kept in. INI files are never written.
struct Format {
    const char* name;
    SystemServer::ConfigStorageType storage;
    bool isEncrypted; // from the beginning
};
constexpr Format FORMATS[] = {
    {"json", SystemServer::ConfigStorageType::JSON, false},
    {"xml", SystemServer::ConfigStorageType::XML, false},
    {"secret", SystemServer::ConfigStorageType::XML, true},
    {"ini", SystemServer::ConfigStorageType::INI, false},
};

// What the default files hold; every number that is sent is greater.
constexpr int64_t DEFAULT_NUMBER = -1;

// A key of which each number gives another; always the same one for the same number.
appcfg::EncryptionKey KeyOf(unsigned number);

// A plain value: how one item's document looks and is stored.
class Document {
public:
    // So many places, and so many bytes between each two of them.
    Document(SystemServer::ConfigStorageType storage, int places, size_t filler) :
        m_storage(storage), m_places(places), m_filler(filler) {}

    // The text of a raw set of the empty key that puts the number everywhere.
    std::string RawText(int64_t number) const;

    // Key and text of a raw set that puts it into the only place of a document with one.
    std::pair<std::string, std::string> Fragment(int64_t number) const;

    // The same as one set: keys and values.
    std::vector<std::pair<std::string, std::string>> Values(int64_t number) const;

    // The number of a whole document; nothing for one that is cut, mixed or anything else.
    std::optional<int64_t> NumberOf(const std::string& text) const;

    // The one that all values are.
    std::optional<int64_t> NumberOfValues(const std::vector<std::string>& values) const;

    // The number in a file's bytes as the service writes them, or in a file; nothing for a missing, cut or
    // unreadable one.
    std::optional<int64_t> NumberInBytes(const std::string& bytes, const Key& key) const;
    std::optional<int64_t> NumberIn(const std::string& path, const Key& key) const;

    // A file as the service would write it.
    void WriteFile(const std::string& path, int64_t number, const Key& key) const;

private:
    bool IsXml() const { return m_storage == SystemServer::ConfigStorageType::XML; }
    bool IsJson() const { return m_storage == SystemServer::ConfigStorageType::JSON; }
    std::string Member(const std::string& name, const std::string& value) const;
    std::string FileText(int64_t number) const;

    SystemServer::ConfigStorageType m_storage;
    int m_places;
    size_t m_filler;
};

} // namespace Endurance

#endif
