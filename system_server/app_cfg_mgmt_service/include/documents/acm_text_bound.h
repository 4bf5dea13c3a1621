// How long a document's text may become: a file beyond MAX_DOCUMENT_BYTES could be saved, but not loaded
// again.
#ifndef ACM_TEXT_BOUND_H
#define ACM_TEXT_BOUND_H

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include "app_cfg_limits.h"

namespace SystemServer {

// The bytes that write puts out; counting ends a little above MAX_DOCUMENT_BYTES.
uint64_t MeasureText(const std::function<void(std::ostream&)>& write);

// What a text takes at most once it is escaped for JSON or XML.
uint64_t EscapedBytes(const std::string& text);

// What a tag takes at most in XML, and each attribute in it.
uint64_t XmlTagBytes(const std::string& name);
uint64_t XmlAttributeBytes(const std::string& name, const std::string& value);

// An upper bound of one document's text that is kept as it changes, so that it is measured only when the
// bound leaves no room. Owned by its document and guarded as that is.
class AcmTextBound {
public:
    // The bound of a document that was loaded.
    void Reset(uint64_t bytes) { m_bytes = bytes; }

    // Takes the growth into account and answers true when the document has room for it. Write puts the
    // document out as it is now.
    bool Admits(uint64_t growth, const std::function<void(std::ostream&)>& write);

private:
    uint64_t m_bytes = 0;
};

} // namespace SystemServer

#endif
