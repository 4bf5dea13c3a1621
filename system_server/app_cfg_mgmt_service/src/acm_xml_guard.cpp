#include "acm_xml_guard.h"

#include <algorithm>

#include "Poco/SAX/Attributes.h"
#include "Poco/XML/XMLException.h"

#include "acm_xml_limits.h"

namespace SystemServer {

using Poco::XML::XMLException;

namespace {

// Bytes of UTF-8 that the parser makes of one byte in another encoding, at most.
constexpr uint64_t MAX_WIDENING = 3;

uint64_t CountAmpersands(const std::string& text) {
    return static_cast<uint64_t>(std::count(text.begin(), text.end(), '&'));
}

// The library's writer puts each identifier between double quotes, whatever it holds.
void CheckIdentifier(const std::string& id) {
    if (id.find('"') != std::string::npos)
        throw XMLException("an identifier with a double quote cannot be written back", id);
}

} // namespace

AcmXmlGuard::AcmXmlGuard(XMLReader& parser, const std::string& text, bool allowDoctype) :
    XMLFilterImpl(&parser), m_entities(CountAmpersands(text)),
    m_maxBytes(text.size() * MAX_WIDENING + MAX_XML_EXPANSION_BYTES), m_allowDoctype(allowDoctype) {}

template <typename Call>
void AcmXmlGuard::Pass(Call call) noexcept {
    ++m_events;
    if (Stopped())
        return;
    try {
        call();
    } catch (...) {
        m_fault = std::current_exception();
    }
}

void AcmXmlGuard::Stop(const char* reason) noexcept {
    Pass([&] { throw XMLException(reason); });
}

void AcmXmlGuard::RethrowFault() const {
    if (m_fault)
        std::rethrow_exception(m_fault);
}

// Only what a DOCTYPE declares can make more of a text than its own bytes.
void AcmXmlGuard::Spend(uint64_t bytes) {
    m_bytes += bytes;
    if (m_bytes > m_maxBytes)
        throw XMLException("the document type adds too much to the document");
}

void AcmXmlGuard::EnterPrefix(const XMLString& prefix, const XMLString& uri) {
    m_declaresNamespaces = true;
    const bool likeMadeUp = prefix.compare(0, 2, "ns") == 0;
    const XMLString& first = m_prefixes.emplace(uri, prefix).first->second;
    m_prefixesClash = m_prefixesClash || likeMadeUp || first != prefix;
}

void AcmXmlGuard::setupParse() {
    XMLFilterImpl::setupParse();
    parent()->setProperty(XMLReader::PROPERTY_LEXICAL_HANDLER, static_cast<LexicalHandler*>(this));
    parent()->setProperty(XMLReader::PROPERTY_DECLARATION_HANDLER, static_cast<DeclHandler*>(this));
}

void AcmXmlGuard::setProperty(const XMLString& id, const XMLString& value) {
    XMLFilterImpl::setProperty(id, value);
}

void AcmXmlGuard::setProperty(const XMLString& id, void* value) {
    if (id == XMLReader::PROPERTY_LEXICAL_HANDLER)
        m_lexical = static_cast<LexicalHandler*>(value);
    else
        XMLFilterImpl::setProperty(id, value);
}

void AcmXmlGuard::CheckAttributes(const Poco::XML::Attributes& attributes) {
    const int count = attributes.getLength();
    if (static_cast<size_t>(count) > MAX_XML_ATTRIBUTES)
        throw XMLException("too many attributes in one element");
    for (int i = 0; i < count; ++i) {
        const XMLString& name = attributes.getQName(i);
        m_declaresNamespaces = m_declaresNamespaces || name.compare(0, 5, "xmlns") == 0;
        Spend(name.size() + attributes.getValue(i).size());
    }
}

void AcmXmlGuard::startElement(const XMLString& uri, const XMLString& localName, const XMLString& qname,
                               const Poco::XML::Attributes& attributes) {
    m_inRoot = true;
    Pass([&] {
        if (++m_depth > MAX_XML_DEPTH)
            throw XMLException("elements nest too deep", qname);
        Spend(qname.size());
        CheckAttributes(attributes);
        XMLFilterImpl::startElement(uri, localName, qname, attributes);
    });
}

void AcmXmlGuard::endElement(const XMLString& uri, const XMLString& localName, const XMLString& qname) {
    Pass([&] {
        --m_depth;
        XMLFilterImpl::endElement(uri, localName, qname);
    });
}

void AcmXmlGuard::characters(const Poco::XML::XMLChar text[], int start, int length) {
    Pass([&] {
        Spend(static_cast<uint64_t>(length));
        XMLFilterImpl::characters(text, start, length);
    });
}

void AcmXmlGuard::processingInstruction(const XMLString& target, const XMLString& data) {
    Pass([&] { XMLFilterImpl::processingInstruction(target, data); });
}

void AcmXmlGuard::startPrefixMapping(const XMLString& prefix, const XMLString& uri) {
    Pass([&] {
        EnterPrefix(prefix, uri);
        XMLFilterImpl::startPrefixMapping(prefix, uri);
    });
}

void AcmXmlGuard::endPrefixMapping(const XMLString& prefix) {
    Pass([&] { XMLFilterImpl::endPrefixMapping(prefix); });
}

void AcmXmlGuard::skippedEntity(const XMLString& name) {
    Pass([&] { XMLFilterImpl::skippedEntity(name); });
}

void AcmXmlGuard::notationDecl(const XMLString& name, const XMLString* publicId, const XMLString* systemId) {
    Pass([&] {
        if (systemId)
            CheckIdentifier(*systemId);
        XMLFilterImpl::notationDecl(name, publicId, systemId);
    });
}

void AcmXmlGuard::unparsedEntityDecl(const XMLString& name, const XMLString* publicId,
                                     const XMLString& systemId, const XMLString& notation) {
    Pass([&] {
        CheckIdentifier(systemId);
        XMLFilterImpl::unparsedEntityDecl(name, publicId, systemId, notation);
    });
}

void AcmXmlGuard::startDTD(const XMLString& name, const XMLString& publicId, const XMLString& systemId) {
    m_inDoctype = true;
    Pass([&] {
        if (!m_allowDoctype)
            throw XMLException("a fragment may not have a DOCTYPE");
        CheckIdentifier(systemId);
        m_lexical->startDTD(name, publicId, systemId);
    });
}

void AcmXmlGuard::endDTD() {
    m_inDoctype = false;
    Pass([&] { m_lexical->endDTD(); });
}

void AcmXmlGuard::startEntity(const XMLString& name) {
    Pass([&] { m_lexical->startEntity(name); });
}

void AcmXmlGuard::endEntity(const XMLString& name) {
    Pass([&] { m_lexical->endEntity(name); });
}

void AcmXmlGuard::startCDATA() {
    Pass([&] { m_lexical->startCDATA(); });
}

void AcmXmlGuard::endCDATA() {
    Pass([&] { m_lexical->endCDATA(); });
}

void AcmXmlGuard::comment(const Poco::XML::XMLChar text[], int start, int length) {
    Pass([&] {
        Spend(static_cast<uint64_t>(length));
        m_lexical->comment(text, start, length);
    });
}

// Declarations go no further: the builder of the tree does not know them.
void AcmXmlGuard::attributeDecl(const XMLString&, const XMLString&, const XMLString*, const XMLString*) {}

void AcmXmlGuard::elementDecl(const XMLString&, const XMLString&) {}

void AcmXmlGuard::externalEntityDecl(const XMLString&, const XMLString*, const XMLString&) {}

void AcmXmlGuard::internalEntityDecl(const XMLString& name, const XMLString& value) {
    Pass([&] { m_entities.Declare(name, value); });
}

} // namespace SystemServer
