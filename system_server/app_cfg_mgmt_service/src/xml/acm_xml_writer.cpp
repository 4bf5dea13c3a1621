// The library's own serializer recurses once per level and, for each attribute, walks over all attributes of
// its element. So the tree is walked here, and only single nodes are given to the library's writer. Two
// things that it writes would be read back differently, and are written here in another way: a carriage
// return in a text becomes a character reference, or it would be read as a line feed; and "]]>" inside a
// CDATA section is split over two sections, or it would end the first.
#include "acm_xml_writer.h"

#include <Poco/DOM/Attr.h>
#include <Poco/DOM/DOMSerializer.h>
#include <Poco/DOM/Document.h>
#include <Poco/DOM/DocumentType.h>
#include <Poco/DOM/Element.h>
#include <Poco/Exception.h>
#include <Poco/SAX/AttributesImpl.h>
#include <Poco/XML/XMLWriter.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>

#include "acm_xml_tree.h"

namespace SystemServer {

using Poco::XML::Attr;
using Poco::XML::Document;
using Poco::XML::Element;
using Poco::XML::Node;
using Poco::XML::XMLChar;
using Poco::XML::XMLString;
using Poco::XML::XMLWriter;

namespace {

class AcmXmlWriter : public XMLWriter {
public:
    AcmXmlWriter(std::ostream& out, int options) : XMLWriter(out, options), m_out(out) {
        setNewLine("\n");
        m_leaves.setContentHandler(this);
        m_leaves.setDTDHandler(this);
        m_leaves.setProperty(Poco::XML::XMLReader::PROPERTY_LEXICAL_HANDLER,
                             static_cast<Poco::XML::LexicalHandler*>(this));
    }

    void Write(const Node& top) {
        const Node* node = &top;
        for (;;) {
            Enter(*node);
            if (const Node* const child = node->firstChild()) {
                node = child;
                continue;
            }
            Leave(*node);
            while (node != &top && node->nextSibling() == nullptr) {
                node = node->parentNode();
                Leave(*node);
            }
            if (node == &top) {
                return;
            }
            node = node->nextSibling();
        }
    }

    void characters(const XMLChar text[], int start, int length) override {
        const XMLChar* position = text + start;
        const XMLChar* const end = position + length;
        while (position != end) {
            const XMLChar* const stop =
                m_inCdata ? FindCdataEnd(position, end) : std::find(position, end, '\r');
            XMLWriter::characters(position, 0, static_cast<int>(stop - position));
            position = stop;
            if (position == end) {
                return;
            }
            if (m_inCdata) {
                endCDATA();
                startCDATA();
            } else {
                rawCharacters("&#xD;");
                ++position;
            }
        }
    }

    void startCDATA() override {
        m_inCdata = true;
        XMLWriter::startCDATA();
    }

    void endCDATA() override {
        m_inCdata = false;
        XMLWriter::endCDATA();
    }

private:
    void Enter(const Node& node) {
        if (!m_out) {
            throw std::ios::failure("the stream of an XML document is full");
        }
        if (node.nodeType() == Node::ELEMENT_NODE) {
            StartElement(static_cast<const Element&>(node));
        } else if (node.nodeType() == Node::DOCUMENT_NODE) {
            startDocument();
            if (const auto* const doctype = static_cast<const Document&>(node).doctype()) {
                m_leaves.serialize(doctype);
            }
        } else {
            m_leaves.serialize(&node);
        }
    }

    void StartElement(const Element& element) {
        Poco::XML::AttributesImpl attributes;
        for (const Attr* attr = FirstXmlAttribute(&element); attr != nullptr; attr = NextXmlAttribute(attr)) {
            attributes.addAttribute(NO_NAME, NO_NAME, attr->nodeName(), NO_NAME, attr->value(),
                                    attr->specified());
        }
        startElement(NO_NAME, NO_NAME, element.tagName(), attributes);
    }

    void Leave(const Node& node) {
        if (node.nodeType() == Node::ELEMENT_NODE) {
            endElement(NO_NAME, NO_NAME, node.nodeName());
        } else if (node.nodeType() == Node::DOCUMENT_NODE) {
            endDocument();
        }
    }

    // The place between "]]" and ">", or the end.
    static const XMLChar* FindCdataEnd(const XMLChar* begin, const XMLChar* end) {
        constexpr XMLChar MARK[] = {']', ']', '>'};
        const XMLChar* const found = std::search(begin, end, std::begin(MARK), std::end(MARK));
        return found == end ? end : found + 2;
    }

    static inline const XMLString NO_NAME; // namespaces are not resolved

    std::ostream& m_out;
    Poco::XML::DOMSerializer m_leaves; // writes nodes that have no children of their own
    bool m_inCdata = false;
};

} // namespace

struct AcmXmlFragmentWriter::Kept {
    std::ostringstream text;
    AcmXmlWriter writer{text, 0};
};

AcmXmlFragmentWriter::AcmXmlFragmentWriter() = default;

AcmXmlFragmentWriter::~AcmXmlFragmentWriter() = default;

// A writer that threw in the middle of a node is not kept, nor is the memory of a long text.
std::string AcmXmlFragmentWriter::Write(const Node& node) {
    constexpr size_t MAX_KEPT_BYTES = 4096;
    std::unique_ptr<Kept> kept = std::move(m_kept);
    if (!kept) {
        kept = std::make_unique<Kept>();
    }
    kept->text.str({});
    kept->writer.startFragment();
    kept->writer.Write(node);
    kept->writer.endFragment();
    if (!kept->text) {
        throw Poco::OutOfMemoryException("the text of an XML node could not be kept");
    }
    std::string text = kept->text.str();
    if (text.size() <= MAX_KEPT_BYTES) {
        m_kept = std::move(kept);
    }
    return text;
}

void WriteXml(const Document& document, std::ostream& out) {
    AcmXmlWriter(out, XMLWriter::PRETTY_PRINT).Write(document);
}

} // namespace SystemServer
