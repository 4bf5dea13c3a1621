// The documents of endurance items: one number in several places, so that a cut or mixed state shows.
#ifndef LIFE_DOCUMENT_H
#define LIFE_DOCUMENT_H

#include <openssl/evp.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "appcfg/item_description.h"
#include "program.h"

namespace Endurance {

using SystemServer::ConfigStorageType;
using Key = std::optional<appcfg::EncryptionKey>;

// The formats that items are kept in. INI files are never written.
struct Format {
    const char* name;
    ConfigStorageType storage;
    bool isEncrypted; // from the beginning
};
constexpr Format FORMATS[] = {
    {"json", ConfigStorageType::JSON, false},
    {"xml", ConfigStorageType::XML, false},
    {"secret", ConfigStorageType::XML, true},
    {"ini", ConfigStorageType::INI, false},
};

// What the default files hold; every number that is sent is greater.
constexpr int64_t DEFAULT_NUMBER = -1;

// The bytes of a file; none of a missing one.
inline std::string ContentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A key of which each number gives another; always the same one for the same number.
inline appcfg::EncryptionKey KeyOf(unsigned number) {
    appcfg::EncryptionKey key;
    for (size_t at = 0; at < key.key.size(); ++at) {
        key.key.at(at) = static_cast<uint8_t>(number + at);
    }
    key.iv.fill(static_cast<uint8_t>(~number));
    return key;
}

constexpr char MARK = '@';
constexpr char FILLER = '~';

inline std::string PlaceName(int place) {
    return (place < 10 ? "k0" : "k") + std::to_string(place);
}

inline std::string Marked(int64_t number) {
    return MARK + std::to_string(number) + MARK;
}

// Encrypts or decrypts as the service's files are; nothing when the text is no cipher text of that key.
inline std::optional<std::string> Crypt(const appcfg::EncryptionKey& key, const std::string& text,
                                        bool encrypt) {
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                                  &EVP_CIPHER_CTX_free);
    std::vector<unsigned char> out(text.size() + EVP_MAX_BLOCK_LENGTH);
    const std::vector<unsigned char> in(text.begin(), text.end());
    int length = 0;
    int rest = 0;
    if (EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.key.data(), key.iv.data(),
                          encrypt ? 1 : 0) != 1 ||
        EVP_CipherUpdate(context.get(), out.data(), &length, in.data(), static_cast<int>(in.size())) != 1 ||
        EVP_CipherFinal_ex(context.get(), out.data() + length, &rest) != 1) {
        return std::nullopt;
    }
    return std::string(out.begin(), out.begin() + length + rest);
}

// A plain value: how one item's document looks and is stored.
class Document {
public:
    // So many places, and so many bytes between each two of them.
    Document(ConfigStorageType storage, int places, size_t filler) :
        m_storage(storage), m_places(places), m_filler(filler) {}

    // The text of a raw set of the empty key that puts the number everywhere; sorted by name, as the service
    // writes the members of an object.
    std::string RawText(int64_t number) const {
        std::string text;
        for (int place = 0; place < m_places; ++place) {
            text += Member(PlaceName(place), Marked(number));
            if (place + 1 < m_places) {
                text += Member(PlaceName(place) + "_filler", std::string(m_filler, FILLER));
            }
        }
        if (IsJson()) {
            text.back() = '}';
        }
        return IsXml() ? "<body>" + text + "</body>" : (IsJson() ? "{" : "") + text;
    }

    // Key and text of a raw set that puts it into the only place of a document with one.
    std::pair<std::string, std::string> Fragment(int64_t number) const {
        const std::string member = Member(PlaceName(0), Marked(number));
        return IsJson() ? std::pair(PlaceName(0), Marked(number))
                        : std::pair(std::string(IsXml() ? "body" : ""), member);
    }

    // The same as one set: keys and values.
    std::vector<std::pair<std::string, std::string>> Values(int64_t number) const {
        std::vector<std::pair<std::string, std::string>> values;
        for (int place = 0; place < m_places; ++place) {
            values.emplace_back((IsXml() ? "body." : "") + PlaceName(place), Marked(number));
        }
        return values;
    }

    // The number of a whole document; nothing for one that is cut, mixed or anything else.
    std::optional<int64_t> NumberOf(const std::string& text) const {
        const std::string end = IsXml() ? "</life>" : IsJson() ? "}" : "";
        const size_t last = text.find_last_not_of(" \n") + 1;
        const auto fillers = static_cast<size_t>(std::count(text.begin(), text.end(), FILLER));
        const bool isWhole = last >= end.size() && text.compare(last - end.size(), end.size(), end) == 0 &&
                             fillers == static_cast<size_t>(m_places - 1) * m_filler;
        return isWhole ? NumberOfValues(text) : std::nullopt;
    }

    // The one that all values are, whatever is between them.
    std::optional<int64_t> NumberOfValues(const std::string& text) const {
        const size_t begin = text.find(MARK);
        int64_t number = 0;
        if (begin == std::string::npos ||
            std::from_chars(&text[begin] + 1, text.data() + text.size(), number).ec != std::errc()) {
            return std::nullopt;
        }
        const std::string marked = Marked(number);
        int places = 0;
        for (size_t at = begin; at != std::string::npos; at = text.find(marked, at + 1)) {
            places += text.compare(at, marked.size(), marked) == 0 ? 1 : 0;
        }
        return places == m_places && std::count(text.begin(), text.end(), MARK) == 2 * m_places
                   ? std::optional(number)
                   : std::nullopt;
    }

    // The number in a file's bytes as the service writes them, or in a file; nothing for a missing, cut or
    // unreadable one.
    std::optional<int64_t> NumberInBytes(const std::string& bytes, const Key& key) const {
        const std::optional<std::string> text = key ? Crypt(*key, bytes, false) : bytes;
        return text ? NumberOf(*text) : std::nullopt;
    }

    std::optional<int64_t> NumberIn(const std::string& path, const Key& key) const {
        return NumberInBytes(ContentOf(path), key);
    }

    // A file as the service would write it.
    void WriteFile(const std::string& path, int64_t number, const Key& key) const {
        const std::string text = IsXml() ? "<life>" + RawText(number) + "</life>" : RawText(number);
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file << (key ? Crypt(*key, text, true).value() : text);
        Require(static_cast<bool>(file.flush()), path + ": cannot be written");
    }

private:
    bool IsXml() const { return m_storage == ConfigStorageType::XML; }
    bool IsJson() const { return m_storage == ConfigStorageType::JSON; }
    std::string Member(const std::string& name, const std::string& value) const {
        return IsXml()    ? "<" + name + ">" + value + "</" + name + ">"
               : IsJson() ? "\"" + name + "\":\"" + value + "\","
                          : name + " = " + value + "\n";
    }

    ConfigStorageType m_storage;
    int m_places;
    size_t m_filler;
};

} // namespace Endurance

#endif
