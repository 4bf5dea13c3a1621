// Whole documents and their fragments, as files and editors change them.
#ifndef APPCFG_CLI_FRAGMENT_H
#define APPCFG_CLI_FRAGMENT_H

#include <optional>
#include <string>

#include "appcfg/item.h"

namespace appcfg::cli {

// Where a text is to stand that takes the place of what a raw get of the key gives.
class Fragment {
public:
    // UsageError when the document's type has no request by which that could be replaced.
    Fragment(const Item& item, std::string key);

    // A JSON value that is no string stays what it is: the text must parse, and the whole document is
    // written. UsageError when the text cannot stand there, RequestRefused when the service says so.
    void Replace(Item& item, const std::string& text) const;

    // What a file with this text ends in.
    const char* Extension() const;

private:
    enum class Place { JSON_DOCUMENT, JSON_VALUE, JSON_STRING, XML_ELEMENT };

    void Below(const std::string& root);

    std::string m_key;
    Place m_place = Place::JSON_DOCUMENT;
    std::string m_parent; // of an XML element, for a raw set
    std::string m_name;
};

// The JSON text of a document's value; nothing when the key leads to none, or to null.
std::optional<std::string> JsonAt(const std::string& document, const std::string& key);

// Where the last step of a key begins: at its point or its bracket; 0 when it has one step.
size_t LastStep(const std::string& key);

} // namespace appcfg::cli

#endif
