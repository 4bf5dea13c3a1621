// What the tests of XML documents share: a document made from text, and short ways to look at it.
#ifndef TESTS_SERVICE_XML_DOCUMENT_H
#define TESTS_SERVICE_XML_DOCUMENT_H

#include <sstream>
#include <string>

#include "Poco/AutoPtr.h"

#include "acm_xml_configuration.h"

using XmlPtr = Poco::AutoPtr<SystemServer::AcmXmlConfiguration>;

inline XmlPtr XmlOf(const std::string& text) {
    std::istringstream stream(text);
    return new SystemServer::AcmXmlConfiguration(stream);
}

inline std::string Saved(XmlPtr& document) {
    std::ostringstream out;
    document->Save(out);
    return out ? out.str() : "(bad stream)";
}

inline std::string RawOf(XmlPtr& document, const std::string& key) {
    std::string text;
    return document->GetRawString(key, text) == 0 ? text : "(nothing)";
}

inline std::string Repeated(size_t times, const std::string& text) {
    std::string all;
    for (size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

inline std::string Nested(size_t levels) {
    return Repeated(levels, "<d>") + Repeated(levels, "</d>");
}

// Empty elements whose names count up.
inline std::string Siblings(size_t count, const std::string& prefix) {
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += "<" + prefix + std::to_string(i) + "/>";
    return text;
}

#endif
