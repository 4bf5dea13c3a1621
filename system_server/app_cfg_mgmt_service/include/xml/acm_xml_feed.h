// The stream from which the XML parser reads a text.
#ifndef ACM_XML_FEED_H
#define ACM_XML_FEED_H

#include <cstddef>
#include <cstdint>
#include <streambuf>
#include <string>

#include "acm_xml_prolog.h"

namespace SystemServer {

class AcmXmlGuard;

// Serves a text piece by piece, and ends early once the guard has stopped, so that the parser gives up soon.
// In front of the root element a piece holds at most one declaration: the guard must judge an entity before
// the parser can read a reference to it. Lives for one parse; no locks.
class AcmXmlFeed : public std::streambuf {
public:
    AcmXmlFeed(const std::string& text, AcmXmlGuard& guard);

protected:
    int_type underflow() override;

private:
    void BoundMarkup();

    const std::string& m_text;
    AcmXmlGuard& m_guard;
    AcmXmlProlog m_prolog;
    size_t m_size; // without trailing blanks
    size_t m_position = 0;
    size_t m_markupEnd = 0; // end of the prolog's markup that is being served
    uint64_t m_events = 0;
    size_t m_lastEvent = 0; // position at the last event
};

} // namespace SystemServer

#endif
