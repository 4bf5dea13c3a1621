// Documents made from an input's text: what they answer, take, refuse and are saved as.
#include <algorithm>
#include <functional>
#include <iterator>
#include <sstream>

#include "Poco/AutoPtr.h"
#include "Poco/DOM/Element.h"
#include "Poco/Exception.h"
#include "Poco/String.h"
#include "Poco/StringTokenizer.h"
#include "Poco/Util/IniFileConfiguration.h"
#include "acm_json_configuration.h"
#include "acm_value_lookup.h"
#include "acm_xml_configuration.h"
#include "app_cfg_crypto_mgr_factory.h"
#include "app_cfg_mgr_factory.h"
#include "fuzz_support.h"

namespace Fuzz {

namespace {

using namespace SystemServer;
using Poco::AutoPtr;
using Poco::Util::AbstractConfiguration;
using Poco::XML::Node;
using Reader = std::function<std::string(const std::string& key)>;

// What the call returned, or the name of the library's exception that it threw. Others pass.
template <typename Call>
std::string Outcome(Call call) {
    try {
        return "= " + call();
    } catch (const Poco::Exception& fault) {
        return fault.className();
    }
}

// What the call returned; an exception of the library is a refusal, which is false or null.
template <typename Call>
auto Accepted(Call call) -> decltype(call()) {
    try {
        return call();
    } catch (const Poco::Exception&) {
        return {};
    }
}

// A text without the white space that stands alone between tags, of which the writer of XML adds some.
std::string WithoutBlanks(const std::string& text) {
    std::string rest;
    size_t at = 0;
    while (at < text.size()) {
        const size_t tag = std::min(text.find('>', at), text.size() - 1) + 1;
        rest.append(text, at, tag - at);
        at = std::min(text.find_first_not_of(" \t\r\n", tag), text.size());
        if (at < text.size() && text[at] != '<') {
            at = tag;
        }
    }
    return rest;
}

// The documents of a text, or null when it is refused.
template <typename As = AcmJsonConfiguration>
AutoPtr<As> LoadJson(const std::string& text) {
    return Accepted(
        [&] { return AutoPtr<As>(new AcmJsonConfiguration(DIRECTORY.Writes("document", text))); });
}

template <typename As = AcmXmlConfiguration>
AutoPtr<As> LoadXml(const std::string& text) {
    std::istringstream stream(text);
    return Accepted([&] { return AutoPtr<As>(new AcmXmlConfiguration(stream)); });
}

// A document behind the letter of its kind; any other letter is null.
AutoPtr<AbstractConfiguration> LoadKind(const std::string& input) {
    std::istringstream stream(input);
    switch (stream.get()) {
    case 'j':
        return LoadJson<AbstractConfiguration>(input.substr(1));
    case 'x':
        return LoadXml<AbstractConfiguration>(input.substr(1));
    case 'i':
        return new Poco::Util::IniFileConfiguration(stream);
    default:
        return nullptr;
    }
}

// The same as the service keeps it.
std::shared_ptr<AppCfgMgr> LoadManager(const std::string& input) {
    const size_t type = std::string("ix j").find(input.c_str()[0]); // kinds by storage type
    if (input.empty() || type == std::string::npos) {
        return nullptr;
    }
    const std::string path = DIRECTORY.Writes("document", input.substr(1));
    return Accepted([&] {
        return AppCfgMgrFactory::CreateAppCfgMgr(static_cast<ConfigStorageType>(type), path, nullptr);
    });
}

// The text that a document is saved as.
template <typename Document>
std::string Saved(Document& document) {
    std::ostringstream stream;
    document.Save(stream);
    Check(stream.good(), "what was accepted can be saved");
    return stream.str();
}

bool IsOrdinaryStep(const std::string& step) {
    size_t at = step.find_first_of("[]");
    if (at == 0 || step.empty()) {
        return false;
    }
    while (at < step.size()) {
        const size_t end = step.find_first_not_of("0123456789", at + 1);
        if (step[at] != '[' || end == std::string::npos || end == at + 1 || step[end] != ']') {
            return false;
        }
        at = end + 1;
    }
    return true;
}

// Whether the library sets with a JSON key what it reads with it: the key is made of names and indexes, and
// an index in the middle leads to an object or array. Otherwise ("." is the whole document, "a[0]b" an
// element, "a[7].b" a member of another element) it sets something else.
bool IsOrdinaryKey(const std::string& key, const Reader& read) {
    const Poco::StringTokenizer steps(key, ".");
    if (steps.count() == 0 || !std::all_of(steps.begin(), steps.end(), IsOrdinaryStep)) {
        return false;
    }
    const size_t last = key.find_last_of(".[");
    if (last == std::string::npos || key.rfind(']', last) == std::string::npos) {
        return true;
    }
    const std::string container = read(key.substr(0, last));
    return !container.empty() && container[0] == (key[last] == '[' ? '[' : '{');
}

// What a set that was taken shows: the XML library replaces the text that an element begins with, and leaves
// one alone that begins with something else.
bool Shows(char kind, const std::string& value, const std::string& before, const std::string& after) {
    return kind == 'x' ? after == before || after.rfind(value, 0) == 0 : after == value;
}

void CheckSet(AppCfgMgr& manager, char kind, const std::string& item) {
    const std::string key = item.substr(0, item.find('|'));
    const std::string value = item.substr(std::min(key.size() + 1, item.size()));
    const Reader read = [&](const std::string& at) {
        std::vector<std::string> values;
        return Accepted([&] { return manager.GetData(at, values) == 0; }) && !values.empty() ? values[0] : "";
    };
    // A get trims keys and expands references.
    const bool comparable = Poco::trim(key) == key && value.find("${") == std::string::npos &&
                            (kind != 'j' || IsOrdinaryKey(key, read));
    const std::string before = read(key);
    const bool taken = Accepted([&] { return manager.SetData(item) == 0; });
    Check(taken || read(key) == before, "a refused set changes nothing: " + item);
    Check(!taken || !comparable || Shows(kind, value, before, read(key)), "it is found: " + item);
}

// The text of the document or of a part of it; empty when there is none.
std::string RawOf(AppCfgMgr& manager, const std::string& key) {
    std::string text;
    return Accepted([&] { return manager.GetRawData(key, text) == 0; }) ? text : std::string();
}

// The child that has the fragment's name holds the fragment's text.
void CheckGraft(const std::string& parent, const std::string& raw) {
    auto fragment = LoadXml(raw);
    auto document = LoadXml(parent);
    Check(!fragment.isNull() && !document.isNull(), "fragment and parent are documents of their own");
    const Node* const element = fragment->FindNode("");
    const Node* const child = AcmXmlConfiguration::FindElement(element->nodeName(), document->FindNode(""));
    Check(child != nullptr && child->innerText() == element->innerText(), "it is found below its parent");
}

// A JSON document that is refused changes nothing; a value that is refused leaves objects on its way.
void CheckRawSet(AppCfgMgr& manager, char kind, const std::string& key, const std::string& raw) {
    const Reader read = [&](const std::string& at) { return RawOf(manager, at); };
    const bool comparable = kind == 'j' && IsOrdinaryKey(key, read);
    const std::string before = Saved(manager);
    if (!Accepted([&] { return manager.SetRawData(key, raw) == 0; })) {
        Check((kind == 'j' && !key.empty()) || Saved(manager) == before, "a refusal changes nothing");
    } else if (kind == 'x') {
        CheckGraft(read(key), raw);
    } else {
        Check(!comparable || read(key) == raw, "the text is found at key " + key);
    }
}

void CheckLoadsAgain(char kind, AppCfgMgr& manager) {
    const std::string saved = Saved(manager);
    const auto again = LoadManager(kind + saved);
    Check(again != nullptr, "what was saved loads again");
    const std::string resaved = Saved(*again);
    Check(kind == 'x' ? WithoutBlanks(resaved) == WithoutBlanks(saved) : resaved == saved,
          "what was saved and loaded is the same");
}

} // namespace

// Encrypted files: bytes are refused or decrypt to the text that encrypts to them again, and any text comes
// back. Input: a letter ("p": the rest is a text to encrypt first) and the file's bytes.
void EncryptedFile(const std::string& input) {
    if (input.empty()) {
        return;
    }
    const auto crypto = AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(ConfigCryptoType::AES_256_CBC,
                                                                      DIRECTORY.Of("file"), {});
    const std::string bytes = Parts(input.substr(1), 1)[0];
    std::string file = bytes;
    if (input[0] == 'p') {
        crypto->Encrypt(bytes, file);
    }
    const std::string path = DIRECTORY.Writes("file", file);
    const auto stream = Accepted([&] { return crypto->GetDecryptStream(); });
    if (stream != nullptr) {
        const std::string text(std::istreambuf_iterator<char>(*stream), {});
        Check(input[0] != 'p' || text == bytes, "a text comes back");
        crypto->Encrypt(text, file);
        Check(DIRECTORY.Text("file") == file, "what decrypts encrypts to the same bytes");
    }
    Check(stream != nullptr || input[0] != 'p', "what was encrypted decrypts");
    for (const auto type : {ConfigStorageType::INI, ConfigStorageType::XML}) {
        const bool loads = Accepted(
            [&, type = type] { return AppCfgMgrFactory::CreateAppCfgMgr(type, path, crypto) != nullptr; });
        Check(stream != nullptr || !loads, "only what decrypts is loaded");
    }
}

// XML keys: the resolver for raw text and the base's lookup of values address the same node.
// Input: document, key.
void XmlKey(const std::string& input) {
    const auto parts = Parts(input, 2);
    auto document = LoadXml(parts[0]);
    if (document.isNull()) {
        return;
    }
    const std::string key = FieldText(parts[1]);
    const std::string text = Outcome([&] {
        const Node* const node = document->FindNode(key);
        if (node == nullptr) {
            throw Poco::NotFoundException(key);
        }
        return node->nodeType() == Node::ATTRIBUTE_NODE ? node->getNodeValue() : node->innerText();
    });
    const std::string value = Outcome([&] { return document->getRawString(key); });
    Check(text == value, "key " + key + ": node " + text + ", value " + value);
}

// The same by the library's own class, where the document's looks values up in its own way.
AutoPtr<AbstractConfiguration> LibrarysOwn(const std::string& input,
                                           const AutoPtr<AbstractConfiguration>& document) {
    if (input[0] != 'j') {
        return document;
    }
    std::istringstream stream(input.substr(1));
    return Accepted(
        [&] { return AutoPtr<AbstractConfiguration>(new Poco::Util::JSONConfiguration(stream)); });
}

// Queries for values: each is what the library's own lookup and expansion of references yield, as far as
// these are bounded. Input: a letter ("j", "x" or "i") and a document, query.
void QueryGet(const std::string& input) {
    const auto parts = Parts(input, 2);
    const auto document = LoadKind(parts[0]);
    const auto library = document.isNull() ? nullptr : LibrarysOwn(parts[0], document);
    if (library.isNull()) {
        return;
    }
    AcmWorkBudget budget;
    for (const std::string& key : Poco::StringTokenizer(FieldText(parts[1]), ",")) {
        const std::string value = Outcome([&] { return LookUpValue(*document, key, budget); });
        if (value == Poco::RangeException().className()) {
            return; // the library has no bound here
        }
        const std::string expected = Outcome([&] { return library->getString(key); });
        Check(value == expected, "key " + key + " has " + value + ", by the library " + expected);
    }
}

// Sets and raw sets in any order: what was set is found, what was refused has changed nothing, and what is
// saved in the end loads again and is the same. Input: a letter ("j", "x" or "i") and a document, then
// queries, and raw sets as "=", the key, a line feed and the text.
void QuerySet(const std::string& input) {
    const auto parts = Parts(input);
    const auto manager = LoadManager(parts[0]);
    if (manager == nullptr) {
        return;
    }
    for (size_t part = 1; part < parts.size(); ++part) {
        const std::string text = FieldText(parts[part]);
        if (text.rfind('=', 0) == 0) {
            const size_t end = std::min(text.find('\n'), text.size());
            const std::string raw = text.substr(std::min(end + 1, text.size()));
            CheckRawSet(*manager, parts[0][0], text.substr(1, end - 1), raw);
            continue;
        }
        for (const std::string& item :
             Poco::StringTokenizer(text, ",", Poco::StringTokenizer::TOK_IGNORE_EMPTY)) {
            CheckSet(*manager, parts[0][0], item);
        }
    }
    if (manager->IsConfigWritable()) {
        CheckLoadsAgain(parts[0][0], *manager);
    }
}

} // namespace Fuzz
