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

constexpr int PLACES = 17;
constexpr char MARK = '@';
constexpr char FILLER = '~';
// Some tens of KB between the first and the last number: a write of many pages can be cut at each.
constexpr size_t FILLER_BYTES = 4000;

std::string PlaceName(int place) {
    return (place < 10 ? "k0" : "k") + std::to_string(place);
}

std::string Marked(int64_t number) {
    return MARK + std::to_string(number) + MARK;
}

// Sorted by name, as the service writes the members of an object.
std::string Body(bool isXml, int64_t number) {
    const auto member = [isXml](const std::string& name, const std::string& value) {
        return isXml ? "<" + name + ">" + value + "</" + name + ">" : "\"" + name + "\":\"" + value + "\"";
    };
    std::string text;
    for (int place = 0; place < PLACES; ++place) {
        if (place > 0) {
            text += (isXml ? "" : ",") +
                    member(PlaceName(place - 1) + "_filler", std::string(FILLER_BYTES, FILLER));
            text += isXml ? "" : ",";
        }
        text += member(PlaceName(place), Marked(number));
    }
    return isXml ? "<body>" + text + "</body>" : "{" + text + "}";
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

Document::Document(const appcfg::ItemDescription& description) :
    m_isXml(description.storage == SystemServer::ConfigStorageType::XML), m_key(description.encryption) {}

std::string Document::RawText(int64_t number) const {
    return Body(m_isXml, number);
}

std::string Document::FileText(int64_t number) const {
    const std::string body = Body(m_isXml, number);
    return m_isXml ? "<crash>" + body + "</crash>" : body;
}

std::vector<std::pair<std::string, std::string>> Document::Values(int64_t number) const {
    std::vector<std::pair<std::string, std::string>> values;
    for (int place = 0; place < PLACES; ++place) {
        values.emplace_back((m_isXml ? "body." : "") + PlaceName(place), Marked(number));
    }
    return values;
}

std::optional<int64_t> Document::NumberOf(const std::string& text) const {
    const std::vector<int64_t> numbers = MarkedNumbers(text);
    const auto fillers = static_cast<size_t>(std::count(text.begin(), text.end(), FILLER));
    const std::string trimmed = text.substr(0, text.find_last_not_of(" \n") + 1);
    if (!EndsWith(trimmed, m_isXml ? "</crash>" : "}") || fillers != (PLACES - 1) * FILLER_BYTES ||
        numbers.size() != PLACES || std::count(numbers.begin(), numbers.end(), numbers[0]) != PLACES) {
        return std::nullopt;
    }
    return numbers[0];
}

std::optional<int64_t> Document::NumberIn(const std::string& path) const {
    std::ifstream file(path, std::ios::binary);
    const std::string stored{std::istreambuf_iterator<char>(file), {}};
    const std::optional<std::string> text = m_key ? Crypt(*m_key, stored, false) : stored;
    return text ? NumberOf(*text) : std::nullopt;
}

void Document::WriteFile(const std::string& path, int64_t number) const {
    const std::string text = FileText(number);
    const std::string stored = m_key ? Crypt(*m_key, text, true).value() : text;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!(file << stored).flush()) {
        throw std::runtime_error(path + ": cannot be written");
    }
}

} // namespace Endurance
