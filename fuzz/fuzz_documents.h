// Documents made from an input's text, and what they answer.
#ifndef FUZZ_FUZZ_DOCUMENTS_H
#define FUZZ_FUZZ_DOCUMENTS_H

#include <functional>
#include <sstream>
#include <string>

#include "Poco/AutoPtr.h"
#include "Poco/Exception.h"
#include "acm_json_configuration.h"
#include "acm_xml_configuration.h"
#include "fuzz_support.h"
#include "support/without_blanks.h"

namespace Fuzz {

// What the call returned, or the name of the library's exception that it threw. Others pass.
template <typename Call>
std::string Outcome(Call call) {
    try {
        return "= " + call();
    } catch (const Poco::Exception& fault) {
        return fault.className();
    }
}

// Whether the call returned true; an exception of the library is a refusal.
template <typename Call>
bool Accepts(Call call) {
    try {
        return call();
    } catch (const Poco::Exception&) {
        return false;
    }
}

// The documents of a text, or null when it is refused.
Poco::AutoPtr<SystemServer::AcmJsonConfiguration> LoadJson(const std::string& text);
Poco::AutoPtr<SystemServer::AcmXmlConfiguration> LoadXml(const std::string& text);

// A document of a kind: "j" JSON, "x" XML, "i" INI, any other null.
Poco::AutoPtr<Poco::Util::AbstractConfiguration> LoadKind(char kind, const std::string& text);

// Whether the library sets with a JSON key what it reads with it: the key is made of names and indexes, and
// an index in the middle leads to an object or array. Otherwise ("." is the whole document, "a[0]b" an
// element, "a[7].b" a member of another element) it sets something else. Asks read for the text at a key.
bool IsOrdinaryKey(const std::string& key, const std::function<std::string(const std::string&)>& read);

using Support::WithoutBlanks;

// The text that a document is saved as.
template <typename Document>
std::string Saved(Document& document) {
    std::ostringstream stream;
    document.Save(stream);
    Check(stream.good(), "a document that was loaded can be saved");
    return stream.str();
}

} // namespace Fuzz

#endif
