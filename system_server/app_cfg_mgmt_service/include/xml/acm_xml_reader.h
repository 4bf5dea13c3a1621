// From text to a document tree, within the limits of acm_xml_limits.h.
#ifndef ACM_XML_READER_H
#define ACM_XML_READER_H

#include <Poco/DOM/AutoPtr.h>
#include <Poco/DOM/Document.h>

#include <cstddef>
#include <string>

namespace SystemServer {

enum class AcmXmlDoctype { ALLOWED, REFUSED };

// Parses the text into a document whose name pool is large enough, with mutation events suspended. Namespaces
// are not resolved: a prefix is part of its name, and "xmlns" is an attribute like others, so that a saved
// document has the names that were read. Text of white space alone is kept. Throws Poco::XML::XMLException
// for malformed text and AcmLimitException for what the service cannot keep.
Poco::AutoPtr<Poco::XML::Document> ReadXml(const std::string& text, AcmXmlDoctype doctype);

// The size of a name pool for so many names and some more, at most MAX_XML_NAMES.
unsigned long XmlNamePoolSize(size_t names);

} // namespace SystemServer

#endif
