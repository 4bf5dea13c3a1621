#ifndef ACM_XML_CONFIGURATION_H
#define ACM_XML_CONFIGURATION_H

#include <Poco/DOM/AutoPtr.h>
#include <Poco/DOM/Document.h>
#include <Poco/Util/XMLConfiguration.h>

#include <istream>
#include <ostream>
#include <string>

#include "acm_document.h"
#include "acm_text_bound.h"
#include "acm_xml_writer.h"

namespace SystemServer {

// One XML file in memory. Owned by its manager, which calls it; the base serves values from the same tree.
// Locks nothing: the manager's document guard is held for every call.
class AcmXmlConfiguration : public Poco::Util::XMLConfiguration, public AcmDocument {
public:
    // Throw Poco exceptions: the file library's for a path that cannot be read, Poco::XML::XMLException for
    // content that is malformed, AcmLimitException for what is beyond the limits of XML documents.
    explicit AcmXmlConfiguration(const std::string& path);
    explicit AcmXmlConfiguration(std::istream& stream);
    ~AcmXmlConfiguration() override;

    // The base's load would leave it with another tree than this class.
    void load(const std::string& path) override;
    void load(std::istream& stream) override;

    // The node that a key addresses, or null; the document keeps it. Keys start below the document element:
    // "a.b" for levels, "[n]" for the n-th following sibling of the same name, "[@k=v]" and "[@k='v']" for
    // the first of them with this attribute, "[@k]" for the attribute itself. Throws Poco::SyntaxException
    // for an index that is no number.
    Poco::XML::Node* FindNode(const std::string& key);
    Poco::XML::Node* FindNode(std::string::const_iterator& position, const std::string::const_iterator& end,
                              Poco::XML::Node* node) const;

    static Poco::XML::Node* FindElement(const std::string& name, Poco::XML::Node* node);
    static Poco::XML::Node* FindElement(int index, Poco::XML::Node* node);
    static Poco::XML::Node* FindElement(const std::string& attribute, const std::string& value,
                                        Poco::XML::Node* node);
    static Poco::XML::Node* FindAttribute(const std::string& name, Poco::XML::Node* node);

    // Writes the node, its own tags included, to out; an attribute is an empty text. The document element's
    // name is a key too. 0, or -1 when the key addresses nothing.
    int GetRawString(const std::string& key, std::string& out) override;

    // Grafts the one element that raw holds below the node: in place of the first child of that name, else
    // as the last child. 0, or -1 when the key addresses nothing. Malformed text, a DOCTYPE or too much depth
    // leave as exceptions; the document is then as it was.
    int SetRawString(const std::string& key, const std::string& raw) override;

    // Writes the document. A fault is logged and leaves the stream bad, since its text is then incomplete.
    void Save(std::ostream& stream) override;

    // Whether a value can be stored at a key that exists: it can be written and read back, and the document
    // has room for it.
    bool Admits(const std::string& key, const std::string& value) override;

    // Whether a value can be written to a file and read back: UTF-8 without control characters other than
    // tab, line feed and carriage return.
    static bool IsStorable(const std::string& value);

private:
    void Read(const std::string& text);
    void Adopt(const Poco::AutoPtr<Poco::XML::Document>& document);
    bool ReserveText(const std::string& raw, const Poco::XML::Document& fragment,
                     const Poco::XML::Node& parent);
    bool ReserveText(uint64_t growth);
    bool FitsItsTag(const Poco::XML::Node& node, const std::string& value);
    Poco::XML::Node* FindRawNode(const std::string& key);
    void MakeRoomForNames(const Poco::XML::Element* fragment);
    void Graft(Poco::XML::Node* parent, const Poco::XML::Element* fragment);

    Poco::AutoPtr<Poco::XML::Document> m_document;
    AcmTextBound m_textBound;
    AcmXmlFragmentWriter m_fragmentWriter;
};

} // namespace SystemServer

#endif
