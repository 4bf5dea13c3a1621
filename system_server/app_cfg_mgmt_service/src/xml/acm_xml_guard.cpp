// The limits of XML documents are checked while the parser reports what it reads. A tag, comment or
// declaration is measured as the writer will write it, so that every document that was loaded can be saved
// and loaded again. What the writer cannot write so that it is read back as the same is refused here too.
#include "acm_xml_guard.h"

#include <Poco/SAX/Attributes.h>
#include <Poco/XML/XMLException.h>

#include <algorithm>

#include "acm_limit.h"
#include "acm_text_bound.h"
#include "acm_xml_limits.h"

namespace SystemServer {

namespace {

using XMLString = Poco::XML::XMLString;

void CheckMarkup(uint64_t bytes) {
    if (bytes > MAX_XML_MARKUP_BYTES) {
        throw AcmLimitException("a tag, comment or declaration is too long");
    }
}

// The library's writer always puts an identifier between double quotes.
void CheckIdentifier(const XMLString& id) {
    if (id.find('"') != XMLString::npos) {
        throw AcmLimitException("an identifier with a double quote cannot be written back", id);
    }
}

} // namespace

AcmXmlGuard::AcmXmlGuard(XMLReader& parser, const std::string& text, AcmXmlDoctype doctype) :
    XMLFilterImpl(&parser), m_entities(text),
    m_maxBytes(text.size() * MAX_XML_WIDENING + MAX_XML_EXPANSION_BYTES), m_doctype(doctype) {}

template <typename Call>
void AcmXmlGuard::Pass(Call call) noexcept {
    ++m_events;
    if (Stopped()) {
        return;
    }
    try {
        call();
    } catch (...) {
        m_fault = std::current_exception();
    }
}

void AcmXmlGuard::Stop(const char* reason) noexcept {
    Pass([&] { throw AcmLimitException(reason); });
}

void AcmXmlGuard::RethrowFault() const {
    if (m_fault) {
        std::rethrow_exception(m_fault);
    }
}

// Bounds the whole text. Only what a DOCTYPE declares can make it longer than the file.
void AcmXmlGuard::Spend(uint64_t bytes) {
    m_bytes += bytes;
    if (m_bytes > m_maxBytes) {
        throw AcmLimitException("the document type adds too much to the document");
    }
}

// With both identifiers, the library's writer puts the public one behind the system one, which is malformed.
void AcmXmlGuard::CheckDeclaration(const XMLString& name, const XMLString* publicId,
                                   const XMLString* systemId) {
    if (++m_declarations > MAX_XML_DECLARATIONS) {
        throw AcmLimitException("too many notations and unparsed entities");
    }
    if (publicId && systemId && !publicId->empty() && !systemId->empty()) {
        throw AcmLimitException("a declaration with two identifiers cannot be written back", *publicId);
    }
    CheckMarkup(name.size() + (publicId ? publicId->size() : 0) + (systemId ? systemId->size() : 0) +
                sizeof "<!NOTATION  SYSTEM \"\" NDATA >");
    if (systemId) {
        CheckIdentifier(*systemId);
    }
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
    if (id == XMLReader::PROPERTY_LEXICAL_HANDLER) {
        m_lexical = static_cast<LexicalHandler*>(value);
    } else {
        XMLFilterImpl::setProperty(id, value);
    }
}

void AcmXmlGuard::CheckTag(const XMLString& name, const Poco::XML::Attributes& attributes) {
    const int count = attributes.getLength();
    if (static_cast<size_t>(count) > MAX_XML_ATTRIBUTES) {
        throw AcmLimitException("too many attributes in one element", name);
    }
    Spend(name.size());
    uint64_t written = XmlTagBytes(name);
    for (int i = 0; i < count; ++i) {
        Spend(attributes.getQName(i).size() + attributes.getValue(i).size());
        written += XmlAttributeBytes(attributes.getQName(i), attributes.getValue(i));
    }
    CheckMarkup(written);
}

void AcmXmlGuard::startElement(const XMLString& uri, const XMLString& localName, const XMLString& qname,
                               const Poco::XML::Attributes& attributes) {
    Pass([&] {
        if (m_isOpen && m_depth == 0) {
            m_entities.RequireDeclared();
        }
        if (++m_depth > MAX_XML_DEPTH) {
            throw AcmLimitException("elements nest too deep", qname);
        }
        CheckTag(qname, attributes);
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
        // In a CDATA section nothing is escaped, and it would be read as a line feed. Only an entity can
        // bring it.
        if (m_inCdata && std::find(text + start, text + start + length, '\r') != text + start + length) {
            throw AcmLimitException("a carriage return in a CDATA section cannot be written back");
        }
        XMLFilterImpl::characters(text, start, length);
    });
}

void AcmXmlGuard::processingInstruction(const XMLString& target, const XMLString& data) {
    Pass([&] {
        CheckMarkup(target.size() + data.size() + sizeof "<? ?>");
        XMLFilterImpl::processingInstruction(target, data);
    });
}

// In front of the root element only parameter entities are skipped.
void AcmXmlGuard::skippedEntity(const XMLString& name) {
    Pass([&] {
        if (m_depth > 0) {
            throw AcmLimitException("an entity that is declared in another file", name);
        }
    });
}

void AcmXmlGuard::notationDecl(const XMLString& name, const XMLString* publicId, const XMLString* systemId) {
    Pass([&] {
        CheckDeclaration(name, publicId, systemId);
        XMLFilterImpl::notationDecl(name, publicId, systemId);
    });
}

void AcmXmlGuard::unparsedEntityDecl(const XMLString& name, const XMLString* publicId,
                                     const XMLString& systemId, const XMLString& notation) {
    Pass([&] {
        CheckDeclaration(name + notation, publicId, &systemId);
        XMLFilterImpl::unparsedEntityDecl(name, publicId, systemId, notation);
    });
}

void AcmXmlGuard::startDTD(const XMLString& name, const XMLString& publicId, const XMLString& systemId) {
    m_inDoctype = true;
    Pass([&] {
        if (m_doctype == AcmXmlDoctype::REFUSED) {
            throw Poco::XML::XMLException("a fragment may not have a DOCTYPE");
        }
        m_isOpen = !systemId.empty() || m_entities.HasParameterEntities();
        CheckMarkup(name.size() + publicId.size() + systemId.size() + sizeof "<!DOCTYPE  PUBLIC \"\" \"\" [");
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
    m_inCdata = true;
    Pass([&] { m_lexical->startCDATA(); });
}

void AcmXmlGuard::endCDATA() {
    m_inCdata = false;
    Pass([&] { m_lexical->endCDATA(); });
}

void AcmXmlGuard::comment(const Poco::XML::XMLChar text[], int start, int length) {
    Pass([&] {
        CheckMarkup(static_cast<uint64_t>(length) + sizeof "<!---->");
        Spend(static_cast<uint64_t>(length));
        m_lexical->comment(text, start, length);
    });
}

// These declarations are not passed on: the builder of the tree does not know them.
void AcmXmlGuard::attributeDecl(const XMLString&, const XMLString&, const XMLString*, const XMLString*) {}

void AcmXmlGuard::elementDecl(const XMLString&, const XMLString&) {}

void AcmXmlGuard::externalEntityDecl(const XMLString&, const XMLString*, const XMLString&) {}

void AcmXmlGuard::internalEntityDecl(const XMLString& name, const XMLString& value) {
    Pass([&] { m_entities.Declare(name, value); });
}

} // namespace SystemServer
