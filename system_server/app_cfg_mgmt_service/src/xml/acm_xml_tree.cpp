#include "acm_xml_tree.h"

#include <Poco/DOM/Attr.h>
#include <Poco/DOM/DOMImplementation.h>
#include <Poco/DOM/DocumentType.h>
#include <Poco/DOM/NamedNodeMap.h>
#include <Poco/DOM/NodeAppender.h>
#include <Poco/XML/NamePool.h>

#include <algorithm>
#include <list>
#include <unordered_set>
#include <vector>

#include "acm_text_bound.h"

namespace SystemServer {

using Poco::AutoPtr;
using Poco::XML::Attr;
using Poco::XML::Document;
using Poco::XML::DocumentType;
using Poco::XML::Element;
using Poco::XML::NamedNodeMap;
using Poco::XML::Node;

namespace {

bool IsElement(const Node* node) {
    return node->nodeType() == Node::ELEMENT_NODE;
}

// Calls visit(node, level) for the element and all below it in document order; the element is level 1.
template <typename Visit>
void Walk(const Element* element, Visit visit) {
    const Node* node = element;
    size_t level = 1;
    while (node) {
        visit(node, level);
        if (const Node* const child = node->firstChild()) {
            node = child;
            ++level;
            continue;
        }
        while (level > 1 && !node->nextSibling()) {
            node = node->parentNode();
            --level;
        }
        node = level > 1 ? node->nextSibling() : nullptr;
    }
}

template <typename Visit>
void WalkNames(const Element* element, Visit visit) {
    Walk(element, [&](const Node* node, size_t) {
        if (!IsElement(node)) {
            return;
        }
        visit(node);
        const Attr* attribute = FirstXmlAttribute(static_cast<const Element*>(node));
        for (; attribute; attribute = NextXmlAttribute(attribute)) {
            visit(attribute);
        }
    });
}

AutoPtr<Element> CopyTag(const Element* element, Document& document) {
    AutoPtr<Element> copy(document.createElement(element->tagName()));
    Attr* last = nullptr;
    for (Attr* attribute = FirstXmlAttribute(element); attribute; attribute = NextXmlAttribute(attribute)) {
        AutoPtr<Node> twin(document.importNode(attribute, false));
        last = copy->addAttributeNodeNP(last, static_cast<Attr*>(twin.get()));
    }
    return copy;
}

AutoPtr<DocumentType> CopyDoctype(const DocumentType* doctype) {
    const auto& library = Poco::XML::DOMImplementation::instance();
    return AutoPtr<DocumentType>(
        library.createDocumentType(doctype->name(), doctype->publicId(), doctype->systemId()));
}

AutoPtr<Document> NewDocument(const DocumentType* doctype, unsigned long poolSize) {
    AutoPtr<Document> document;
    if (!doctype) {
        document = new Document(poolSize);
        document->suspendEvents();
        return document;
    }
    AutoPtr<DocumentType> copy = CopyDoctype(doctype);
    document = new Document(copy.get(), poolSize);
    document->suspendEvents();
    for (Node* child = doctype->firstChild(); child; child = child->nextSibling()) {
        AutoPtr<Node> twin(document->importNode(child, true));
        copy->appendChild(twin);
    }
    return document;
}

} // namespace

Attr* FirstXmlAttribute(const Element* element) {
    const AutoPtr<NamedNodeMap> attributes(element->attributes());
    return static_cast<Attr*>(attributes->item(0));
}

Attr* NextXmlAttribute(const Attr* attribute) {
    return static_cast<Attr*>(attribute->nextSibling());
}

size_t XmlDepth(const Node* node) {
    size_t depth = 0;
    for (; node && node->nodeType() != Node::DOCUMENT_NODE; node = node->parentNode()) {
        ++depth;
    }
    return depth;
}

size_t XmlHeight(const Element* element) {
    size_t height = 0;
    Walk(element, [&](const Node* node, size_t level) {
        if (IsElement(node)) {
            height = std::max(height, level);
        }
    });
    return height;
}

uint64_t XmlTagBytes(const Element* element) {
    uint64_t bytes = XmlTagBytes(element->tagName());
    for (const Attr* attribute = FirstXmlAttribute(element); attribute;
         attribute = NextXmlAttribute(attribute)) {
        bytes += XmlAttributeBytes(attribute->name(), attribute->value());
    }
    return bytes;
}

size_t CountXmlNames(const Element* element) {
    // Nodes of one name share the pool's string.
    std::unordered_set<const std::string*> names;
    WalkNames(element, [&](const Node* node) { names.insert(&node->nodeName()); });
    return names.size();
}

void ReserveXmlNames(const Element* element, Document& document) {
    WalkNames(element, [&](const Node* node) {
        document.namePool().insert(node->nodeName(), node->namespaceURI(), node->localName());
    });
}

AutoPtr<Element> CopyXmlElement(const Element* element, Document& document) {
    AutoPtr<Element> copy = CopyTag(element, document);
    std::list<Poco::XML::NodeAppender> parents; // the copies of the node's ancestors, the root's first
    parents.emplace_back(copy.get());
    Walk(element, [&](const Node* node, size_t level) {
        if (level == 1) {
            return;
        }
        while (parents.size() >= level) {
            parents.pop_back();
        }
        if (IsElement(node)) {
            AutoPtr<Element> twin = CopyTag(static_cast<const Element*>(node), document);
            parents.back().appendChild(twin);
            parents.emplace_back(twin.get());
        } else {
            AutoPtr<Node> twin(document.importNode(const_cast<Node*>(node), false));
            parents.back().appendChild(twin);
        }
    });
    return copy;
}

AutoPtr<Document> CopyXmlDocument(const Document& document, unsigned long poolSize) {
    AutoPtr<Document> copy = NewDocument(document.doctype(), poolSize);
    std::vector<Node*> children;
    for (Node* child = document.firstChild(); child; child = child->nextSibling()) {
        children.push_back(child);
    }
    // In reverse, each in front of the others: to append one, the library would walk over all siblings.
    for (auto child = children.rbegin(); child != children.rend(); ++child) {
        if (IsElement(*child)) {
            AutoPtr<Element> twin = CopyXmlElement(static_cast<Element*>(*child), *copy);
            copy->insertBefore(twin, copy->firstChild());
        } else {
            AutoPtr<Node> twin(copy->importNode(*child, false));
            copy->insertBefore(twin, copy->firstChild());
        }
    }
    return copy;
}

} // namespace SystemServer
