#include "acm_xml_feed.h"

#include <algorithm>

#include "acm_xml_guard.h"
#include "acm_xml_limits.h"

namespace SystemServer {

namespace {

constexpr size_t PIECE_BYTES = 4096; // what the parser's own buffer holds

// How far the parser may read without an event. Some parsers look at an incomplete piece of markup again only
// once they have twice as much of it.
constexpr size_t MAX_SILENCE = 2 * MAX_XML_MARKUP_BYTES + PIECE_BYTES;

} // namespace

AcmXmlFeed::AcmXmlFeed(const std::string& text, AcmXmlGuard& guard) :
    m_text(text), m_guard(guard), m_prolog(text), m_size(text.find_last_not_of(" \t\r\n") + 1) {}

std::streambuf::int_type AcmXmlFeed::underflow() {
    BoundMarkup();
    if (m_guard.Stopped() || m_position >= m_size) {
        return traits_type::eof();
    }
    const size_t end = std::min({m_position + PIECE_BYTES, m_size, m_markupEnd});
    // The cast is safe: nothing writes to the get area.
    char* const text = const_cast<char*>(m_text.data());
    setg(text + m_position, text + m_position, text + end);
    m_position = end;
    return traits_type::to_int_type(*gptr());
}

// While no event comes, the parser is inside one piece of markup. In front of the root element not all markup
// causes an event, so there each piece counts by itself.
void AcmXmlFeed::BoundMarkup() {
    const bool isNew = m_position >= m_markupEnd;
    if (isNew) {
        m_markupEnd = m_prolog.NextEnd(m_position);
    }
    if (isNew || m_prolog.IsBlank() || m_events != m_guard.Events()) {
        m_events = m_guard.Events();
        m_lastEvent = m_position;
    }
    if (m_position - m_lastEvent > MAX_SILENCE) {
        m_guard.Stop("a tag, comment or declaration is too long");
    }
}

} // namespace SystemServer
