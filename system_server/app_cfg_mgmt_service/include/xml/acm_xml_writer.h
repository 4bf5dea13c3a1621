// From a document tree to text that is read as the same tree.
#ifndef ACM_XML_WRITER_H
#define ACM_XML_WRITER_H

#include <Poco/DOM/Document.h>
#include <Poco/DOM/Node.h>

#include <memory>
#include <ostream>
#include <string>

namespace SystemServer {

// Writes a document indented, as the library's configurations do. Throws Poco::XML::XMLException for
// characters that XML cannot hold, and std::ios::failure once the stream takes no more.
void WriteXml(const Poco::XML::Document& document, std::ostream& out);

// Writes single nodes as they are; an attribute is an empty text. To set up the library's writer takes longer
// than to write a value, so it is kept for the next node.
class AcmXmlFragmentWriter {
public:
    AcmXmlFragmentWriter();
    ~AcmXmlFragmentWriter();

    // Throws what WriteXml throws, and Poco::OutOfMemoryException for a text that could not be kept.
    std::string Write(const Poco::XML::Node& node);

private:
    struct Kept;
    std::unique_ptr<Kept> m_kept;
};

} // namespace SystemServer

#endif
