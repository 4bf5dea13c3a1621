#include "acm_xml_configuration.h"

#include <Poco/DOM/Attr.h>
#include <Poco/DOM/Element.h>
#include <Poco/Exception.h>
#include <Poco/StreamCopier.h>

#include <algorithm>

#include "acm_file.h"
#include "acm_limit.h"
#include "acm_utf8.h"
#include "acm_xml_key.h"
#include "acm_xml_limits.h"
#include "acm_xml_reader.h"
#include "acm_xml_tree.h"
#include "app_cfg_log.h"

namespace SystemServer {

using Poco::AutoPtr;
using Poco::XML::Attr;
using Poco::XML::Document;
using Poco::XML::Element;
using Poco::XML::Node;

namespace {

std::string ReadStream(std::istream& stream) {
    std::string text;
    Poco::StreamCopier::copyToString(stream, text);
    if (stream.bad()) {
        throw Poco::ReadFileException("the stream of an XML document failed");
    }
    return text;
}

bool HasAttributeValue(const Node* node, const std::string& attribute, const std::string& value) {
    const auto* const element = dynamic_cast<const Element*>(node);
    return element && element->getAttribute(attribute) == value;
}

Node* NextOfSameName(const Node* node) {
    Node* sibling = node->nextSibling();
    while (sibling && sibling->nodeName() != node->nodeName()) {
        sibling = sibling->nextSibling();
    }
    return sibling;
}

// An upper bound of what XML text takes once it is written, each tag on a line of its own and indented, and
// in UTF-8 whatever its encoding.
uint64_t WrittenBytes(const std::string& text) {
    const auto tags = static_cast<uint64_t>(std::count(text.begin(), text.end(), '<'));
    return MAX_XML_WIDENING * EscapedBytes(text) + tags * (MAX_XML_DEPTH + 2);
}

// What the document takes when it is written.
uint64_t MeasureXml(const Document& document) {
    return MeasureText([&](std::ostream& out) { WriteXml(document, out); });
}

bool IsXmlCharacter(int character) {
    return character == '\t' || character == '\n' || character == '\r' ||
           (character >= 0x20 && character <= 0xD7FF) || (character >= 0xE000 && character <= 0xFFFD) ||
           (character >= 0x10000 && character <= 0x10FFFF);
}

} // namespace

AcmXmlConfiguration::AcmXmlConfiguration(const std::string& path) {
    load(path);
}

AcmXmlConfiguration::AcmXmlConfiguration(std::istream& stream) {
    load(stream);
}

AcmXmlConfiguration::~AcmXmlConfiguration() = default;

void AcmXmlConfiguration::load(const std::string& path) {
    Read(ReadRegularFile(path));
}

void AcmXmlConfiguration::load(std::istream& stream) {
    Read(ReadStream(stream));
}

void AcmXmlConfiguration::Read(const std::string& text) {
    const AutoPtr<Document> document = ReadXml(text, AcmXmlDoctype::ALLOWED);
    uint64_t bytes = WrittenBytes(text);
    if (bytes > MAX_DOCUMENT_BYTES || document->doctype()) { // which may add to the text
        bytes = MeasureXml(*document);
    }
    if (bytes > MAX_DOCUMENT_BYTES) {
        throw AcmLimitException("document too large");
    }
    Adopt(document);
    m_textBound.Reset(bytes);
}

void AcmXmlConfiguration::Adopt(const AutoPtr<Document>& document) {
    XMLConfiguration::load(static_cast<const Document*>(document.get()));
    m_document = document;
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
    for (Node* child = node ? node->firstChild() : nullptr; child; child = child->nextSibling()) {
        if (child->nodeType() == Node::ELEMENT_NODE && child->nodeName() == name) {
            return child;
        }
    }
    return nullptr;
}

Node* AcmXmlConfiguration::FindElement(int index, Node* node) {
    for (; node && index > 0; --index) {
        node = NextOfSameName(node);
    }
    return node;
}

Node* AcmXmlConfiguration::FindElement(const std::string& attribute, const std::string& value, Node* node) {
    while (node && !HasAttributeValue(node, attribute, value)) {
        node = NextOfSameName(node);
    }
    return node;
}

Node* AcmXmlConfiguration::FindAttribute(const std::string& name, Node* node) {
    const auto* const element = dynamic_cast<const Element*>(node);
    return element ? element->getAttributeNode(name) : nullptr;
}

// The document element's name wins over a child of that name.
Node* AcmXmlConfiguration::FindRawNode(const std::string& key) {
    Element* const root = m_document->documentElement();
    std::string::const_iterator position = key.begin();
    return key == root->nodeName() ? root : FindNode(position, key.end(), root);
}

int AcmXmlConfiguration::GetRawString(const std::string& key, std::string& out) {
    const Node* const node = FindRawNode(key);
    if (!node) {
        return -1;
    }
    out = m_fragmentWriter.Write(*node);
    return 0;
}

int AcmXmlConfiguration::SetRawString(const std::string& key, const std::string& raw) {
    const Node* const parent = FindRawNode(key);
    if (!parent) {
        return -1;
    }
    ACM_LOG(ACM_INFO, "find parent node.");
    ACM_LOG(ACM_INFO, "start parse rawString.");
    const AutoPtr<Document> fragment = ReadXml(raw, AcmXmlDoctype::REFUSED);
    ACM_LOG(ACM_INFO, "parse done.");
    const Element* const element = fragment->documentElement();
    if (XmlDepth(parent) + XmlHeight(element) > MAX_XML_DEPTH) {
        throw AcmLimitException("elements nest too deep", element->nodeName());
    }
    if (!ReserveText(raw, *fragment, *parent)) {
        throw AcmLimitException("document too large", element->nodeName());
    }
    MakeRoomForNames(element);
    Graft(FindRawNode(key), element);
    return 0;
}

// The fragment is measured when its bound leaves no room: each of its lines is indented below the parent.
bool AcmXmlConfiguration::ReserveText(const std::string& raw, const Document& fragment, const Node& parent) {
    const uint64_t endTag = XmlTagBytes(parent.nodeName()); // of a parent that was empty
    if (WrittenBytes(raw) <= MAX_DOCUMENT_BYTES && ReserveText(WrittenBytes(raw) + endTag)) {
        return true;
    }
    const auto lines = static_cast<uint64_t>(std::count(raw.begin(), raw.end(), '<'));
    return ReserveText(MeasureXml(fragment) + lines * XmlDepth(&parent) + endTag);
}

bool AcmXmlConfiguration::ReserveText(uint64_t growth) {
    return m_textBound.Reserve(growth, [this](std::ostream& out) { WriteXml(*m_document, out); });
}

bool AcmXmlConfiguration::Admits(const std::string& key, const std::string& value) {
    const Node* const node = FindNode(key);
    if (!node) {
        return false;
    }
    const uint64_t endTag = XmlTagBytes(node->nodeName()); // of an element that was empty
    return IsStorable(value) && FitsItsTag(*node, value) && ReserveText(EscapedBytes(value) + endTag);
}

// A tag with the value in its attribute must not become longer than one that can be loaded.
bool AcmXmlConfiguration::FitsItsTag(const Node& node, const std::string& value) {
    if (node.nodeType() != Node::ATTRIBUTE_NODE) {
        return true;
    }
    const auto& attribute = static_cast<const Attr&>(node);
    return XmlTagBytes(attribute.ownerElement()) - EscapedBytes(attribute.value()) + EscapedBytes(value) <=
           MAX_XML_MARKUP_BYTES;
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
        Adopt(copy);
    }
}

void AcmXmlConfiguration::Graft(Node* parent, const Element* fragment) {
    AutoPtr<Element> element = CopyXmlElement(fragment, *m_document);
    Node* child = parent->firstChild();
    while (child && child->nodeName() != element->nodeName()) {
        child = child->nextSibling();
    }
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
        WriteXml(*m_document, stream);
    } catch (const std::ios::failure&) {
        // The stream is bad already.
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
    return IsUtf8(value, IsXmlCharacter);
}

} // namespace SystemServer
