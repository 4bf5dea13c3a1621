// From a document tree to text that is read as the same tree.
#ifndef ACM_XML_WRITER_H
#define ACM_XML_WRITER_H

#include <Poco/DOM/Node.h>

#include <ostream>

namespace SystemServer {

// Writes a whole document indented, as the library's configurations do, and any other node as it is; an
// attribute is an empty text. Throws Poco::XML::XMLException for characters that XML cannot hold, and
// std::ios::failure once the stream takes no more.
void WriteXml(const Poco::XML::Node& node, std::ostream& out);

} // namespace SystemServer

#endif
