// A raw set does not undo a raw get: of a JSON key it stores a string whatever the text is, and of an XML key
// it puts an element below the one that the key names. So the request is chosen by what stands there.
#include "fragment.h"

#include <nlohmann/json.hpp>

#include "exit_status.h"

namespace appcfg::cli {
namespace {

using Json = nlohmann::ordered_json;

// wifi.list[1] is /wifi/list/1.
Json::json_pointer PointerTo(const std::string& key) {
    Json::json_pointer pointer;
    size_t at = 0;
    while (at < key.size()) {
        const size_t end = std::min(key.find_first_of(".[]", at), key.size());
        if (end > at) {
            pointer /= key.substr(at, end - at);
        }
        at = end + 1;
    }
    return pointer;
}

std::string NameOfRoot(const std::string& xml) {
    const size_t end = xml.find_first_of(" \t\r\n/>");
    return xml.substr(1, end - 1);
}

} // namespace

std::optional<std::string> JsonAt(const std::string& document, const std::string& key) {
    const Json root = Json::parse(document);
    const Json::json_pointer pointer = PointerTo(key);
    try {
        const Json& found = root.at(pointer);
        return found.is_null() ? std::nullopt : std::make_optional(found.dump());
    } catch (const Json::exception&) {
        return std::nullopt; // nothing is there, or its index is beyond what this machine counts to
    }
}

size_t LastStep(const std::string& key) {
    size_t last = 0;
    bool isSelector = false;
    bool isQuoted = false;
    for (size_t i = 0; i < key.size(); ++i) {
        const char c = key[i];
        isQuoted = isQuoted != (isSelector && c == '\'');
        if (!isSelector && (c == '.' || c == '[')) {
            last = i;
        }
        isSelector = c == '[' || (isSelector && (c != ']' || isQuoted));
    }
    return last;
}

Fragment::Fragment(const Item& item, std::string key) : m_key(std::move(key)) {
    const std::string whole = item.GetRaw();
    if (whole.empty()) {
        throw UsageError(item.GetHandle().ToString() +
                         ": an INI document has no text to get or to replace; use get and set");
    }
    if (whole.front() == '<') {
        Below(NameOfRoot(whole));
    } else if (!m_key.empty()) {
        const std::string value = JsonAt(whole, m_key).value_or("\"");
        m_place = value.front() == '"' ? Place::JSON_STRING : Place::JSON_VALUE;
    }
}

// The service puts an element in the place of the first one of its name below a parent.
void Fragment::Below(const std::string& root) {
    m_place = Place::XML_ELEMENT;
    const size_t step = LastStep(m_key);
    m_name = m_key.substr(step == 0 ? 0 : step + 1);
    m_parent = m_key.substr(0, step);
    if (m_key.empty() || m_key == root) {
        throw UsageError("the root of an XML document cannot be replaced; name an element below it");
    }
    if (m_key.find('[', step) != std::string::npos) {
        throw UsageError("of XML elements that share their name only the first can be replaced, and no "
                         "attribute: the key '" +
                         m_key + "' ends in brackets");
    }
    // The root's bare name would mean the root.
    if (m_parent == root) {
        m_parent += "[0]";
    }
}

const char* Fragment::Extension() const {
    return m_place == Place::XML_ELEMENT ? ".xml" : m_place == Place::JSON_STRING ? ".txt" : ".json";
}

void Fragment::Replace(Item& item, const std::string& text) const {
    if (m_place == Place::XML_ELEMENT) {
        const std::string start = "<" + m_name;
        if (text.rfind(start, 0) != 0 || text.find_first_of(" \t\r\n/>") != start.size()) {
            throw UsageError("the text has to begin with " + start);
        }
        item.SetRaw(m_parent, text);
    } else if (m_place == Place::JSON_VALUE) {
        Json document = Json::parse(item.GetRaw());
        try {
            document.at(PointerTo(m_key)) = Json::parse(text);
        } catch (const Json::exception& error) {
            throw UsageError("the text cannot stand there: " + std::string(error.what()));
        }
        item.SetRaw("", document.dump(2));
    } else {
        item.SetRaw(m_key, text);
    }
}

} // namespace appcfg::cli
