// From text to a document tree, within the limits of acm_xml_limits.h.
#ifndef ACM_XML_READER_H
#define ACM_XML_READER_H

#include <cstddef>
#include <string>

#include "Poco/DOM/AutoPtr.h"
#include "Poco/DOM/Document.h"

namespace SystemServer {

enum class AcmXmlDoctype { ALLOWED, REFUSED };

// Parses the text into a document with room for its names and with mutation events suspended. A prefix is a
// part of its name, declared or not, and "xmlns" an attribute like others: what is written has the names that
// were read. Text that is white space alone is kept. Throws Poco::XML::XMLException for what is malformed and
// AcmLimitException for what the service cannot keep.
Poco::AutoPtr<Poco::XML::Document> ReadXml(const std::string& text, AcmXmlDoctype doctype);

// The size of a name pool that has room for so many names and some more, at most MAX_XML_NAMES.
unsigned long XmlNamePoolSize(size_t names);

} // namespace SystemServer

#endif
