// Keeps a document's text within MAX_DOCUMENT_BYTES: a longer file could be saved, but not loaded again.
#ifndef ACM_TEXT_BOUND_H
#define ACM_TEXT_BOUND_H

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include "app_cfg_limits.h"

namespace SystemServer {

// Counts the bytes that write puts out, up to a little more than MAX_DOCUMENT_BYTES.
uint64_t MeasureText(const std::function<void(std::ostream&)>& write);

// The most bytes that a text can take once it is escaped for JSON or XML.
uint64_t EscapedBytes(const std::string& text);

// The most bytes of an XML tag without attributes, and of each attribute in it.
uint64_t XmlTagBytes(const std::string& name);
uint64_t XmlAttributeBytes(const std::string& name, const std::string& value);

// An upper bound of the length of one document's text. It is updated with each change, so that the document
// has to be measured only when the bound comes near the limit. Owned by its document and guarded as that is.
class AcmTextBound {
public:
    // Sets the bound of a document that was loaded.
    void Reset(uint64_t bytes) { m_bytes = bytes; }

    // Counts the growth and returns true when the document stays within the limit. Write puts the document
    // out as it is now.
    bool Reserve(uint64_t growth, const std::function<void(std::ostream&)>& write);

private:
    uint64_t m_bytes = 0;
};

} // namespace SystemServer

#endif
