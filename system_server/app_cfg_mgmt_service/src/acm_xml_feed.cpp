#include "acm_xml_feed.h"

#include <algorithm>

#include "acm_xml_guard.h"
#include "acm_xml_limits.h"

namespace SystemServer {

namespace {

constexpr size_t PIECE_BYTES = 4096; // what the parser's own buffer holds

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\0';
}

} // namespace

std::streambuf::int_type AcmXmlFeed::underflow() {
    CountRescan();
    if (m_guard.Stopped() || m_position == m_text.size())
        return traits_type::eof();
    const size_t length = PieceLength();
    // The get area is never written to.
    char* const piece = const_cast<char*>(m_text.data()) + m_position;
    setg(piece, piece, piece + length);
    m_position += length;
    return traits_type::to_int_type(*piece);
}

void AcmXmlFeed::CountRescan() {
    if (m_events != m_guard.Events()) {
        m_events = m_guard.Events();
        m_tokenStart = m_position;
    }
    m_rescanned += m_position - m_tokenStart;
    if (m_rescanned > MAX_XML_RESCANNED_BYTES)
        m_guard.Stop("a tag or comment is too long");
}

// A DOCTYPE's declarations begin after a "[", and an entity's ends with a quote and ">". In UTF-16 each
// character has a zero byte beside it, which goes with the piece.
size_t AcmXmlFeed::PieceLength() const {
    const size_t most = std::min(PIECE_BYTES, m_text.size() - m_position);
    if (m_guard.InRoot())
        return most;
    char last = '\0';
    for (size_t i = 0; i < most; ++i) {
        const char c = m_text[m_position + i];
        const bool ends = m_guard.InDoctype() ? c == '>' && (last == '"' || last == '\'') : c == '[';
        if (ends) {
            const bool wide = i + 1 < most && m_text[m_position + i + 1] == '\0';
            return wide ? i + 2 : i + 1;
        }
        if (!IsBlank(c))
            last = c;
    }
    return most;
}

} // namespace SystemServer
