// The filter between the XML parser and the builder of the tree.
#ifndef ACM_XML_GUARD_H
#define ACM_XML_GUARD_H

#include <Poco/SAX/DeclHandler.h>
#include <Poco/SAX/LexicalHandler.h>
#include <Poco/SAX/XMLFilterImpl.h>

#include <cstdint>
#include <exception>
#include <string>

#include "acm_xml_entities.h"
#include "acm_xml_reader.h"

namespace SystemServer {

// Passes a parser's events on until one breaks a limit or the receiver throws. From then on it passes nothing
// on and keeps the fault. It never throws itself: an exception cannot pass the parser's C code on every
// target. Lives for one parse; no locks.
class AcmXmlGuard : public Poco::XML::XMLFilterImpl,
                    public Poco::XML::LexicalHandler,
                    public Poco::XML::DeclHandler {
public:
    using XMLString = Poco::XML::XMLString;

    // The text is what is parsed; it must outlive the guard.
    AcmXmlGuard(Poco::XML::XMLReader& parser, const std::string& text, AcmXmlDoctype doctype);

    // The number of events so far, passed on or not. While it does not change, the parser is inside one piece
    // of markup.
    uint64_t Events() const { return m_events; }
    bool Stopped() const { return m_fault != nullptr; }

    // Ends the passing on, as a fault does.
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
    void CheckDeclaration(const XMLString& name, const XMLString* publicId, const XMLString* systemId);
    void CheckTag(const XMLString& name, const Poco::XML::Attributes& attributes);

    Poco::XML::LexicalHandler* m_lexical = nullptr;
    AcmXmlEntities m_entities;
    const uint64_t m_maxBytes;
    const AcmXmlDoctype m_doctype;
    std::exception_ptr m_fault;
    uint64_t m_events = 0;
    uint64_t m_bytes = 0;
    size_t m_depth = 0;
    bool m_inDoctype = false;
    bool m_isOpen = false;     // declarations may be in other files, which are not read
    size_t m_declarations = 0; // notations and unparsed entities, which are saved again
    bool m_inCdata = false;
};

} // namespace SystemServer

#endif
