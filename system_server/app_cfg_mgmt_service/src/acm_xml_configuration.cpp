#include "acm_xml_configuration.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "Poco/DOM/Attr.h"
#include "Poco/DOM/DOMSerializer.h"
#include "Poco/DOM/DOMWriter.h"
#include "Poco/DOM/Element.h"
#include "Poco/Exception.h"
#include "Poco/UTF8Encoding.h"
#include "Poco/XML/XMLException.h"
#include "Poco/XML/XMLWriter.h"

#include "acm_file.h"
#include "acm_xml_key.h"
#include "acm_xml_limits.h"
#include "acm_xml_reader.h"
#include "acm_xml_tree.h"
#include "app_cfg_log.h"

namespace SystemServer {

using Poco::AutoPtr;
using Poco::XML::Document;
using Poco::XML::Element;
using Poco::XML::Node;
using Poco::XML::XMLString;
using Poco::XML::XMLWriter;

namespace {

constexpr char LOG_FILE[] = "system_server/app_cfg_mgmt_service/src/acm_xml_configuration";

// What a document is read with first, and what it is read with again: the second is the base's way.
constexpr AcmXmlReadOptions FIRST_READ{true, false, true};
constexpr AcmXmlReadOptions RELOAD{false, true, true};
constexpr AcmXmlReadOptions FRAGMENT{true, false, false};

std::string ReadStream(std::istream& stream) {
    std::string text;
    std::array<char, 4096> piece;
    while (stream.read(piece.data(), piece.size()) || stream.gcount() > 0)
        text.append(piece.data(), static_cast<size_t>(stream.gcount()));
    if (stream.bad())
        throw Poco::ReadFileException("the stream of an XML document failed");
    return text;
}

bool HasAttributeValue(const Node* node, const std::string& attribute, const std::string& value) {
    const auto* const element = dynamic_cast<const Element*>(node);
    return element && element->getAttribute(attribute) == value;
}

Node* NextOfSameName(const Node* node) {
    Node* sibling = node->nextSibling();
    while (sibling && sibling->nodeName() != node->nodeName())
        sibling = sibling->nextSibling();
    return sibling;
}

// An upper bound of what XML text takes once it is written, each tag on a line of its own and indented.
uint64_t WrittenBytes(const std::string& text) {
    const auto tags = static_cast<uint64_t>(std::count(text.begin(), text.end(), '<'));
    return EscapedBytes(text) + tags * (MAX_XML_DEPTH + 2);
}

// Writes as the base does, but gives up when the stream takes no more: the library's writer would walk the
// rest of the document first.
class AcmXmlGauge : public XMLWriter {
public:
    explicit AcmXmlGauge(std::ostream& out) : XMLWriter(out, PRETTY_PRINT), m_out(out) {
        setNewLine("\n");
        m_serializer.setContentHandler(this);
        m_serializer.setDTDHandler(this);
        m_serializer.setProperty(Poco::XML::XMLReader::PROPERTY_LEXICAL_HANDLER,
                                 static_cast<Poco::XML::LexicalHandler*>(this));
    }

    void Write(const Document& document) { m_serializer.serialize(&document); }

    void startElement(const XMLString& uri, const XMLString& localName, const XMLString& qname,
                      const Poco::XML::Attributes& attributes) override {
        if (!m_out)
            throw std::ios::failure("the stream of an XML document is full");
        XMLWriter::startElement(uri, localName, qname, attributes);
    }

private:
    std::ostream& m_out;
    Poco::XML::DOMSerializer m_serializer;
};

// What the document takes when the base writes it.
uint64_t MeasureXml(const Document& document) {
    return MeasureText([&](std::ostream& out) { AcmXmlGauge(out).Write(document); });
}

bool IsXmlCharacter(int character) {
    return character == '\t' || character == '\n' || character == '\r' ||
           (character >= 0x20 && character <= 0xD7FF) || (character >= 0xE000 && character <= 0xFFFD) ||
           (character >= 0x10000 && character <= 0x10FFFF);
}

} // namespace

AcmXmlConfiguration::AcmXmlConfiguration(const std::string& path) {
    Read(ReadRegularFile(path), path, FIRST_READ);
}

AcmXmlConfiguration::AcmXmlConfiguration(std::istream& stream) {
    Read(ReadStream(stream), "", FIRST_READ);
}

AcmXmlConfiguration::~AcmXmlConfiguration() = default;

void AcmXmlConfiguration::load(const std::string& path) {
    Read(ReadRegularFile(path), path, RELOAD);
}

void AcmXmlConfiguration::load(std::istream& stream) {
    Read(ReadStream(stream), "", RELOAD);
}

void AcmXmlConfiguration::Read(const std::string& text, const std::string& source,
                               const AcmXmlReadOptions& options) {
    const AcmXmlReading reading = ReadXml(text, source, options);
    // What entities and default attributes added is bounded on its own.
    uint64_t bytes = WrittenBytes(text) + 6 * MAX_XML_EXPANSION_BYTES;
    if (bytes > MAX_DOCUMENT_BYTES) {
        bytes = MeasureXml(*reading.document);
    }
    if (bytes > MAX_DOCUMENT_BYTES) {
        throw AcmTooLargeException("document too large", source);
    }
    Adopt(reading);
    m_textBound.Reset(bytes);
}

void AcmXmlConfiguration::Adopt(const AcmXmlReading& reading) {
    const Document* const document = reading.document.get();
    XMLConfiguration::load(document);
    m_document = reading.document;
    m_declaresNamespaces = reading.declaresNamespaces;
}

Node* AcmXmlConfiguration::FindNode(const std::string& key) {
    std::string::const_iterator position = key.begin();
    return FindNode(position, key.end(), m_document->documentElement());
}

// A loop, although each step starts a walk of its own: a key can have thousands of steps.
Node* AcmXmlConfiguration::FindNode(std::string::const_iterator& position,
                                    const std::string::const_iterator& end, Node* node) const {
    while (node && position != end) {
        const AcmXmlKeyStep step = ReadXmlKeyStep(position, end);
        switch (step.kind) {
        case AcmXmlKeyStep::CHILD:
            node = FindElement(step.name, node);
            break;
        case AcmXmlKeyStep::SIBLING:
            node = FindElement(step.index, node);
            break;
        case AcmXmlKeyStep::ATTRIBUTE_VALUE:
            node = FindElement(step.name, step.value, node);
            break;
        case AcmXmlKeyStep::ATTRIBUTE:
            return FindAttribute(step.name, node);
        }
    }
    return node;
}

Node* AcmXmlConfiguration::FindElement(const std::string& name, Node* node) {
    for (Node* child = node->firstChild(); child; child = child->nextSibling()) {
        if (child->nodeType() == Node::ELEMENT_NODE && child->nodeName() == name)
            return child;
    }
    return nullptr;
}

Node* AcmXmlConfiguration::FindElement(int index, Node* node) {
    for (; node && index > 0; --index)
        node = NextOfSameName(node);
    return node;
}

Node* AcmXmlConfiguration::FindElement(const std::string& attribute, const std::string& value, Node* node) {
    while (node && !HasAttributeValue(node, attribute, value))
        node = NextOfSameName(node);
    return node;
}

Node* AcmXmlConfiguration::FindAttribute(const std::string& name, Node* node) {
    const auto* const element = dynamic_cast<const Element*>(node);
    return element ? element->getAttributeNode(name) : nullptr;
}

// The document element's name wins over a child of that name.
Node* AcmXmlConfiguration::FindRawNode(const std::string& key) {
    Element* const root = m_document->documentElement();
    return key == root->nodeName() ? root : FindNode(key);
}

int AcmXmlConfiguration::GetRawString(const std::string& key, std::string& out) {
    const Node* const node = FindRawNode(key);
    if (!node)
        return -1;
    std::ostringstream text;
    Poco::XML::DOMWriter().writeNode(text, node);
    if (!text)
        throw Poco::WriteFileException("the text of an XML node could not be kept");
    out = text.str();
    return 0;
}

int AcmXmlConfiguration::SetRawString(const std::string& key, const std::string& raw) {
    const Node* const parent = FindRawNode(key);
    if (!parent)
        return -1;
    ACM_LOG(ACM_INFO, "find parent node.");
    ACM_LOG(ACM_INFO, "start parse rawString.");
    const AcmXmlReading fragment = ReadFragment(raw);
    ACM_LOG(ACM_INFO, "parse done.");
    const Element* const element = fragment.document->documentElement();
    if (XmlDepth(parent) + XmlHeight(element) > MAX_XML_DEPTH)
        throw Poco::XML::XMLException("elements nest too deep", element->nodeName());
    if (!HasRoomFor(raw, *fragment.document, XmlDepth(parent)))
        throw AcmTooLargeException("document too large", element->nodeName());
    MakeRoomForNames(element);
    Graft(FindRawNode(key), element);
    m_declaresNamespaces = m_declaresNamespaces || fragment.declaresNamespaces;
    return 0;
}

// The fragment is measured when its bound leaves no room: each of its lines is indented below the parent.
bool AcmXmlConfiguration::HasRoomFor(const std::string& raw, const Document& fragment, size_t depth) {
    const auto write = [this](std::ostream& out) { AcmXmlGauge(out).Write(*m_document); };
    if (WrittenBytes(raw) <= MAX_DOCUMENT_BYTES && m_textBound.Admits(WrittenBytes(raw), write))
        return true;
    const auto lines = static_cast<uint64_t>(std::count(raw.begin(), raw.end(), '<'));
    return m_textBound.Admits(MeasureXml(fragment) + lines * depth, write);
}

bool AcmXmlConfiguration::Admits(const std::string&, const std::string& value) {
    return IsStorable(value) && m_textBound.Admits(EscapedBytes(value), [this](std::ostream& out) {
        AcmXmlGauge(out).Write(*m_document);
    });
}

// Prefixes of a fragment can clash with those of the document too: they are then checked alone and go in
// as plain text.
AcmXmlReading AcmXmlConfiguration::ReadFragment(const std::string& raw) const {
    AcmXmlReading fragment = ReadXml(raw, "", FRAGMENT);
    if (!fragment.declaresNamespaces || !m_declaresNamespaces)
        return fragment;
    AcmXmlReadOptions plain = FRAGMENT;
    plain.namespaces = false;
    return ReadXml(raw, "", plain);
}

// The pool keeps the names of replaced elements, and is full some day: the document then moves to a copy
// with a pool for what it still holds. Nodes found before are no longer part of it.
void AcmXmlConfiguration::MakeRoomForNames(const Element* fragment) {
    try {
        ReserveXmlNames(fragment, *m_document);
    } catch (const Poco::PoolOverflowException&) {
        const size_t names = CountXmlNames(m_document->documentElement()) + CountXmlNames(fragment);
        AutoPtr<Document> copy = CopyXmlDocument(*m_document, XmlNamePoolSize(2 * names));
        ReserveXmlNames(fragment, *copy);
        Adopt({copy, m_declaresNamespaces});
    }
}

void AcmXmlConfiguration::Graft(Node* parent, const Element* fragment) {
    AutoPtr<Element> element = CopyXmlElement(fragment, *m_document);
    Node* child = parent->firstChild();
    while (child && child->nodeName() != element->nodeName())
        child = child->nextSibling();
    if (child) {
        parent->replaceChild(element, child);
        m_document->collectGarbage(); // or the old child would live as long as the document
        return;
    }
    parent->appendChild(element);
    ACM_LOG(ACM_INFO, "append done.");
}

void AcmXmlConfiguration::Save(std::ostream& stream) {
    try {
        save(stream);
    } catch (const Poco::Exception& fault) {
        ACM_LOG(ACM_ERROR, "%s", fault.displayText().c_str());
        try {
            stream.setstate(std::ios::badbit);
        } catch (const std::ios::failure&) {
            // The stream's owner asked for exceptions; its state is set all the same.
        }
    }
}

bool AcmXmlConfiguration::IsStorable(const std::string& value) {
    const Poco::UTF8Encoding utf8;
    const auto* position = reinterpret_cast<const unsigned char*>(value.data());
    const auto* const end = position + value.size();
    while (position != end) {
        const int length = utf8.sequenceLength(position, 1);
        if (length < 1 || length > end - position || !Poco::UTF8Encoding::isLegal(position, length) ||
            !IsXmlCharacter(utf8.queryConvert(position, length)))
            return false;
        position += length;
    }
    return true;
}

} // namespace SystemServer
