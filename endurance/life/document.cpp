#include "document.h"

#include <openssl/evp.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace Endurance {

namespace {

constexpr char MARK = '@';
constexpr char FILLER = '~';

std::string PlaceName(int place) {
    return (place < 10 ? "k0" : "k") + std::to_string(place);
}

std::string Marked(int64_t number) {
    return MARK + std::to_string(number) + MARK;
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Encrypts or decrypts as the service's files are; nothing when the text is no cipher text of that key.
std::optional<std::string> Crypt(const appcfg::EncryptionKey& key, const std::string& text, bool encrypt) {
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

// The numbers between marks, as far as they are numbers.
std::vector<int64_t> MarkedNumbers(const std::string& text) {
    std::vector<int64_t> numbers;
    size_t begin = text.find(MARK);
    while (begin != std::string::npos) {
        const size_t end = text.find(MARK, begin + 1);
        int64_t number = 0;
        if (end == std::string::npos ||
            std::from_chars(&text[begin + 1], &text[end], number).ptr != &text[end]) {
            break;
        }
        numbers.push_back(number);
        begin = text.find(MARK, end + 1);
    }
    return numbers;
}

} // namespace

appcfg::EncryptionKey KeyOf(unsigned number) {
    appcfg::EncryptionKey key;
    for (size_t at = 0; at < key.key.size(); ++at) {
        key.key.at(at) = static_cast<uint8_t>(number + at);
    }
    key.iv.fill(static_cast<uint8_t>(~number));
    return key;
}

std::string Document::Member(const std::string& name, const std::string& value) const {
    return IsXml()    ? "<" + name + ">" + value + "</" + name + ">"
           : IsJson() ? "\"" + name + "\":\"" + value + "\","
                      : name + " = " + value + "\n";
}

// Sorted by name, as the service writes the members of an object.
std::string Document::RawText(int64_t number) const {
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

std::string Document::FileText(int64_t number) const {
    return IsXml() ? "<life>" + RawText(number) + "</life>" : RawText(number);
}

std::pair<std::string, std::string> Document::Fragment(int64_t number) const {
    const std::string member = Member(PlaceName(0), Marked(number));
    return IsJson() ? std::pair(PlaceName(0), Marked(number))
                    : std::pair(std::string(IsXml() ? "body" : ""), member);
}

std::vector<std::pair<std::string, std::string>> Document::Values(int64_t number) const {
    std::vector<std::pair<std::string, std::string>> values;
    for (int place = 0; place < m_places; ++place) {
        values.emplace_back((IsXml() ? "body." : "") + PlaceName(place), Marked(number));
    }
    return values;
}

std::optional<int64_t> Document::NumberOf(const std::string& text) const {
    const std::vector<int64_t> numbers = MarkedNumbers(text);
    const auto places = static_cast<size_t>(m_places);
    const auto fillers = static_cast<size_t>(std::count(text.begin(), text.end(), FILLER));
    const std::string trimmed = text.substr(0, text.find_last_not_of(" \n") + 1);
    if (!EndsWith(trimmed, IsXml()    ? "</life>"
                           : IsJson() ? "}"
                                      : "") ||
        fillers != (places - 1) * m_filler || numbers.size() != places ||
        std::count(numbers.begin(), numbers.end(), numbers[0]) != m_places) {
        return std::nullopt;
    }
    return numbers[0];
}

std::optional<int64_t> Document::NumberOfValues(const std::vector<std::string>& values) const {
    std::vector<int64_t> numbers;
    for (const std::string& value : values) {
        const std::vector<int64_t> found = MarkedNumbers(value);
        numbers.insert(numbers.end(), found.begin(), found.end());
    }
    const bool isSame = numbers.size() == static_cast<size_t>(m_places) &&
                        std::count(numbers.begin(), numbers.end(), numbers[0]) == m_places;
    return isSame ? std::optional(numbers[0]) : std::nullopt;
}

std::optional<int64_t> Document::NumberInBytes(const std::string& bytes, const Key& key) const {
    const std::optional<std::string> text = key ? Crypt(*key, bytes, false) : bytes;
    return text ? NumberOf(*text) : std::nullopt;
}

std::optional<int64_t> Document::NumberIn(const std::string& path, const Key& key) const {
    std::ifstream file(path, std::ios::binary);
    return NumberInBytes({std::istreambuf_iterator<char>(file), {}}, key);
}

void Document::WriteFile(const std::string& path, int64_t number, const Key& key) const {
    const std::string text = FileText(number);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!(file << (key ? Crypt(*key, text, true).value() : text)).flush()) {
        throw std::runtime_error(path + ": cannot be written");
    }
}

} // namespace Endurance
