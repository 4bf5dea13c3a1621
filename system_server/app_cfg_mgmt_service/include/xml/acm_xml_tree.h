// Walking and copying trees. Unlike the document library's own copying, this takes linear time, does not
// recurse and loses nothing when it fails.
#ifndef ACM_XML_TREE_H
#define ACM_XML_TREE_H

#include <Poco/DOM/Attr.h>
#include <Poco/DOM/AutoPtr.h>
#include <Poco/DOM/Document.h>
#include <Poco/DOM/Element.h>

#include <cstddef>
#include <cstdint>

namespace SystemServer {

// The attributes as the linked list that they are; the library's access by index would walk it from its start
// each time. Null at the end.
Poco::XML::Attr* FirstXmlAttribute(const Poco::XML::Element* element);
Poco::XML::Attr* NextXmlAttribute(const Poco::XML::Attr* attribute);

// The number of levels from the document element down to the node, counting both.
size_t XmlDepth(const Poco::XML::Node* node);

// The number of levels of the element and those below it.
size_t XmlHeight(const Poco::XML::Element* element);

// The most bytes of the element's own tag when it is written.
uint64_t XmlTagBytes(const Poco::XML::Element* element);

// Distinct names of the elements and attributes at and below the element.
size_t CountXmlNames(const Poco::XML::Element* element);

// Enters these names into the document's pool. Throws Poco::PoolOverflowException when the pool is full, and
// leaves the tree unchanged.
void ReserveXmlNames(const Poco::XML::Element* element, Poco::XML::Document& document);

// A copy of the element and all below it that belongs to the document, not yet placed in its tree.
Poco::AutoPtr<Poco::XML::Element> CopyXmlElement(const Poco::XML::Element* element,
                                                 Poco::XML::Document& document);

// A copy of the whole document with another size of name pool.
Poco::AutoPtr<Poco::XML::Document> CopyXmlDocument(const Poco::XML::Document& document,
                                                   unsigned long poolSize);

} // namespace SystemServer

#endif
