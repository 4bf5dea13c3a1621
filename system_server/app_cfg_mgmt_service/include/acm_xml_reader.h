// From text to a document tree, within the limits of acm_xml_limits.h.
#ifndef ACM_XML_READER_H
#define ACM_XML_READER_H

#include <cstddef>
#include <string>

#include "Poco/DOM/AutoPtr.h"
#include "Poco/DOM/Document.h"

namespace SystemServer {

struct AcmXmlReadOptions {
    bool namespaces = true;     // resolve prefixes; a prefix without declaration is an error
    bool dropBlankText = false; // leave out text that is white space alone
    bool allowDoctype = true;
};

struct AcmXmlReading {
    Poco::AutoPtr<Poco::XML::Document> document; // mutation events suspended
    bool declaresNamespaces = false;
};

// Parses the text into a document with room for its names. The source's name shows in messages only. Where
// the library's writer would mix up prefixes, they are checked but kept as plain text. Throws
// Poco::XML::XMLException for what is malformed or beyond a limit.
AcmXmlReading ReadXml(const std::string& text, const std::string& source, const AcmXmlReadOptions& options);

// The size of a name pool that has room for so many names and some more, at most MAX_XML_NAMES.
unsigned long XmlNamePoolSize(size_t names);

} // namespace SystemServer

#endif
