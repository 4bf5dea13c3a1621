// The guard must judge an entity before the parser can read a reference to it, so the parser is given at most
// one declaration at a time. This finds where each declaration ends, by the grammar of what may stand in
// front of the root element: a ">" inside a comment, an instruction or a literal is no end.
#include "acm_xml_prolog.h"

#include <algorithm>
#include <cstring>

namespace SystemServer {

namespace {

bool IsBlankCharacter(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

} // namespace

AcmXmlProlog::AcmXmlProlog(const std::string& text) : m_text(text) {
    const auto begins = [&](char first, char second) {
        return text.size() >= 2 && text[0] == first && text[1] == second;
    };
    if (begins('\xFF', '\xFE') || begins('<', '\0')) {
        m_width = 2;
    } else if (begins('\xFE', '\xFF') || begins('\0', '<')) {
        m_width = 2;
        m_lowByte = 1;
    }
    if (begins('\xFF', '\xFE') || begins('\xFE', '\xFF')) {
        m_end = 2;
    } else if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        m_end = 3;
    }
}

size_t AcmXmlProlog::NextEnd(size_t position) {
    while (!m_isInRoot && m_end <= position && m_end < m_text.size()) {
        m_isBlank = IsBlankCharacter(At(m_end));
        if (m_isBlank) {
            while (IsBlankCharacter(At(m_end))) {
                m_end += m_width;
            }
        } else {
            m_end = SkipMarkup(m_end);
        }
    }
    return m_isInRoot ? std::string::npos : m_end;
}

// The character at the position; NUL at the end of the text.
char AcmXmlProlog::At(size_t position) const {
    if (position + m_width > m_text.size()) {
        return '\0';
    }
    const char low = m_text[position + m_lowByte];
    const bool isWide = m_width == 2 && m_text[position + 1 - m_lowByte] != '\0';
    return isWide ? OTHER : low;
}

bool AcmXmlProlog::Matches(size_t position, const char* ascii) const {
    for (; *ascii != '\0'; ++ascii, position += m_width) {
        if (At(position) != *ascii) {
            return false;
        }
    }
    return true;
}

// The position behind the next end mark, or the end of the text.
size_t AcmXmlProlog::Skip(size_t position, const char* end) const {
    while (position < m_text.size() && !Matches(position, end)) {
        position += m_width;
    }
    return std::min(position + std::strlen(end) * m_width, m_text.size());
}

// A literal may hold anything but its own quote. A DOCTYPE with a subset counts as ended where that begins.
size_t AcmXmlProlog::SkipDeclaration(size_t position) const {
    for (; position < m_text.size(); position += m_width) {
        const char c = At(position);
        if (c == '>' || c == '[') {
            return position + m_width;
        }
        if (c == '"' || c == '\'') {
            position = Skip(position + m_width, c == '"' ? "\"" : "'") - m_width;
        }
    }
    return m_text.size();
}

size_t AcmXmlProlog::SkipMarkup(size_t position) {
    if (Matches(position, "<!--")) {
        return Skip(position + 4 * m_width, "-->");
    }
    if (Matches(position, "<?")) {
        return Skip(position + 2 * m_width, "?>");
    }
    if (Matches(position, "<!")) {
        const size_t end = SkipDeclaration(position);
        m_inSubset = m_inSubset || At(end - m_width) == '[';
        return end;
    }
    if (m_inSubset) { // its end, or a reference to a parameter entity
        m_inSubset = At(position) != ']';
        return m_inSubset ? Skip(position, ";") : Skip(position, ">");
    }
    m_isInRoot = true;
    return m_text.size();
}

} // namespace SystemServer
