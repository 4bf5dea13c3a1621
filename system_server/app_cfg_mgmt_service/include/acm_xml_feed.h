// The stream from which the XML parser reads a text.
#ifndef ACM_XML_FEED_H
#define ACM_XML_FEED_H

#include <cstddef>
#include <cstdint>
#include <streambuf>
#include <string>

namespace SystemServer {

class AcmXmlGuard;

// Serves a text piece by piece and ends early once the guard has stopped, so that the parser gives up soon.
// Inside a DOCTYPE a piece ends with each declaration: the guard judges an entity before the parser can
// read a reference to it. Lives for one parse; no locks.
class AcmXmlFeed : public std::streambuf {
public:
    AcmXmlFeed(const std::string& text, AcmXmlGuard& guard) : m_text(text), m_guard(guard) {}

protected:
    int_type underflow() override;

private:
    void CountRescan();
    size_t PieceLength() const;

    const std::string& m_text;
    AcmXmlGuard& m_guard;
    size_t m_position = 0;
    uint64_t m_events = 0;
    size_t m_tokenStart = 0; // where the parser stood when an event came last
    uint64_t m_rescanned = 0;
};

} // namespace SystemServer

#endif
