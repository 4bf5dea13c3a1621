#include "acm_xml_entities.h"

#include <algorithm>

#include "acm_limit.h"
#include "acm_xml_limits.h"

namespace SystemServer {

namespace {

constexpr char NAME_ENDS[] = "&%;<>\"' \t\r\n";

bool IsPredefined(const std::string& name) {
    return name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos";
}

// Calls visit(name) for each reference in the text that begins with the mark, character references left out.
// A name ends at the next mark at the latest, so that the text is read only once.
template <typename Visit>
void ForEachReference(const std::string& text, char mark, Visit visit) {
    for (size_t start = text.find(mark); start != std::string::npos; start = text.find(mark, start + 1)) {
        const size_t end = text.find_first_of(NAME_ENDS, start + 1);
        if (end != std::string::npos && end > start + 1 && text[end] == ';' && text[start + 1] != '#') {
            visit(text.substr(start + 1, end - start - 1));
        }
    }
}

void RefuseNested(const std::string& entity, const std::string& text) {
    for (const char mark : {'&', '%'}) {
        ForEachReference(text, mark, [&](const std::string& name) {
            if (mark == '%' || !IsPredefined(name)) {
                throw AcmLimitException("an entity refers to another entity", entity);
            }
        });
    }
}

std::string AsciiOf(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
    return text;
}

bool IsAscii(const std::string& name) {
    return std::all_of(name.begin(), name.end(), [](unsigned char c) { return c < 0x80; });
}

} // namespace

void AcmXmlEntities::Declare(const std::string& name, const std::string& text) {
    RefuseNested(name, text);
    CountReferences();
    m_declared.insert(name);
    // A name that is declared twice counts with both texts.
    m_added += text.size() * ReferencesTo(name);
    if (m_added > MAX_XML_EXPANSION_BYTES) {
        throw AcmLimitException("entities expand to too much text", name);
    }
}

void AcmXmlEntities::RequireDeclared() {
    CountReferences();
    for (const auto& [name, count] : m_references) {
        if (m_declared.count(name) == 0 && !IsPredefined(name)) {
            throw AcmLimitException("an entity that is declared in another file", name);
        }
    }
}

bool AcmXmlEntities::HasParameterEntities() const {
    bool found = false;
    ForEachReference(AsciiOf(m_text), '%', [&](const std::string&) { found = true; });
    return found;
}

// Every encoding that the parser knows has ASCII characters as single bytes, apart from the zero bytes beside
// them in UTF-16; AsciiOf removes those.
void AcmXmlEntities::CountReferences() {
    if (m_ampersands != 0) {
        return;
    }
    const std::string text = AsciiOf(m_text);
    ForEachReference(text, '&', [this](const std::string& name) { ++m_references[name]; });
    m_ampersands = static_cast<uint64_t>(std::count(text.begin(), text.end(), '&')) + 1;
}

// A name beyond ASCII is not found in a text of another encoding, so every "&" counts as a reference to it.
uint64_t AcmXmlEntities::ReferencesTo(const std::string& name) const {
    const auto found = m_references.find(name);
    if (!IsAscii(name)) {
        return m_ampersands;
    }
    return found == m_references.end() ? 0 : found->second;
}

} // namespace SystemServer
