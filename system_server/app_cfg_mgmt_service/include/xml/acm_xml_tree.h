// What the document library's own copying lacks: linear time, no recursion, nothing lost when it fails.
#ifndef ACM_XML_TREE_H
#define ACM_XML_TREE_H

#include <cstddef>
#include <cstdint>

#include "Poco/DOM/Attr.h"
#include "Poco/DOM/AutoPtr.h"
#include "Poco/DOM/Document.h"
#include "Poco/DOM/Element.h"

namespace SystemServer {

// The attributes are a linked list; their map's own index would walk it from its start each time. Null behind
// the last.
Poco::XML::Attr* FirstXmlAttribute(const Poco::XML::Element* element);
Poco::XML::Attr* NextXmlAttribute(const Poco::XML::Attr* attribute);

// Levels from the document element down to the node, both counted.
size_t XmlDepth(const Poco::XML::Node* node);

// Levels of elements at and below the element.
size_t XmlHeight(const Poco::XML::Element* element);

// What the element's own tag takes at most when it is written.
uint64_t XmlTagBytes(const Poco::XML::Element* element);

// Distinct names of the elements and attributes at and below the element.
size_t CountXmlNames(const Poco::XML::Element* element);

// Enters these names into the document's pool. Throws Poco::PoolOverflowException when it is full; the
// tree is as it was.
void ReserveXmlNames(const Poco::XML::Element* element, Poco::XML::Document& document);

// A copy of the element and all below it that belongs to the document, not yet placed in its tree.
Poco::AutoPtr<Poco::XML::Element> CopyXmlElement(const Poco::XML::Element* element,
                                                 Poco::XML::Document& document);

// A copy of the whole document with another size of name pool.
Poco::AutoPtr<Poco::XML::Document> CopyXmlDocument(const Poco::XML::Document& document,
                                                   unsigned long poolSize);

} // namespace SystemServer

#endif
