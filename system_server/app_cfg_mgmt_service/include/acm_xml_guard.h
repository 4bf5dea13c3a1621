// The filter between the XML parser and the builder of the tree.
#ifndef ACM_XML_GUARD_H
#define ACM_XML_GUARD_H

#include <cstdint>
#include <exception>
#include <map>
#include <string>

#include "Poco/SAX/DeclHandler.h"
#include "Poco/SAX/LexicalHandler.h"
#include "Poco/SAX/XMLFilterImpl.h"

#include "acm_xml_entities.h"

namespace SystemServer {

// Hands a parser's events on until one breaks a limit or the receiver throws; from then on it is silent and
// keeps the fault. It never throws itself: the parser's C code between could not be unwound on every target.
// Lives for one parse; no locks.
class AcmXmlGuard : public Poco::XML::XMLFilterImpl,
                    public Poco::XML::LexicalHandler,
                    public Poco::XML::DeclHandler {
public:
    using XMLString = Poco::XML::XMLString;

    AcmXmlGuard(Poco::XML::XMLReader& parser, const std::string& text, bool allowDoctype);

    // Events so far, also those that went no further: while the number stands still, the parser is in the
    // middle of something.
    uint64_t Events() const { return m_events; }
    bool InDoctype() const { return m_inDoctype; }
    bool InRoot() const { return m_inRoot; }
    bool DeclaresNamespaces() const { return m_declaresNamespaces; }
    // The library's writer takes any prefix of a namespace, not always the same for both tags of an element,
    // and makes up "ns1" and so on without a look at the prefixes that there are.
    bool PrefixesClash() const { return m_prefixesClash; }
    bool Stopped() const { return m_fault != nullptr; }

    // Makes the guard silent, as a fault of an event does.
    void Stop(const char* reason) noexcept;
    // Throws the kept fault, if any.
    void RethrowFault() const;

    void setProperty(const XMLString& id, const XMLString& value) override;
    void setProperty(const XMLString& id, void* value) override;

    void startElement(const XMLString& uri, const XMLString& localName, const XMLString& qname,
                      const Poco::XML::Attributes& attributes) override;
    void endElement(const XMLString& uri, const XMLString& localName, const XMLString& qname) override;
    void characters(const Poco::XML::XMLChar text[], int start, int length) override;
    void processingInstruction(const XMLString& target, const XMLString& data) override;
    void startPrefixMapping(const XMLString& prefix, const XMLString& uri) override;
    void endPrefixMapping(const XMLString& prefix) override;
    void skippedEntity(const XMLString& name) override;

    void notationDecl(const XMLString& name, const XMLString* publicId, const XMLString* systemId) override;
    void unparsedEntityDecl(const XMLString& name, const XMLString* publicId, const XMLString& systemId,
                            const XMLString& notation) override;

    void startDTD(const XMLString& name, const XMLString& publicId, const XMLString& systemId) override;
    void endDTD() override;
    void startEntity(const XMLString& name) override;
    void endEntity(const XMLString& name) override;
    void startCDATA() override;
    void endCDATA() override;
    void comment(const Poco::XML::XMLChar text[], int start, int length) override;

    void attributeDecl(const XMLString& element, const XMLString& name, const XMLString* mode,
                       const XMLString* value) override;
    void elementDecl(const XMLString& name, const XMLString& model) override;
    void externalEntityDecl(const XMLString& name, const XMLString* publicId,
                            const XMLString& systemId) override;
    void internalEntityDecl(const XMLString& name, const XMLString& value) override;

protected:
    void setupParse() override;

private:
    template <typename Call>
    void Pass(Call call) noexcept;
    void Spend(uint64_t bytes);
    void EnterPrefix(const XMLString& prefix, const XMLString& uri);
    void CheckAttributes(const Poco::XML::Attributes& attributes);

    Poco::XML::LexicalHandler* m_lexical = nullptr;
    AcmXmlEntities m_entities;
    const uint64_t m_maxBytes;
    const bool m_allowDoctype;
    std::exception_ptr m_fault;
    uint64_t m_events = 0;
    uint64_t m_bytes = 0;
    size_t m_depth = 0;
    bool m_inDoctype = false;
    bool m_inRoot = false;
    std::map<XMLString, XMLString> m_prefixes; // the first of each namespace, anywhere in the text
    bool m_declaresNamespaces = false;
    bool m_prefixesClash = false;
};

} // namespace SystemServer

#endif
