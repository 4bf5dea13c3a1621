// XML fragments: what was grafted is found, a refusal changes nothing, and what is saved can be loaded.
// Input: document, key of the parent, fragment.
#include "Poco/DOM/Element.h"
#include "fuzz_documents.h"

namespace {

// The child that has the fragment's name holds the fragment's text.
void CheckGraft(SystemServer::AcmXmlConfiguration& document, const std::string& key, const std::string& raw) {
    auto fragment = Fuzz::LoadXml(raw);
    Fuzz::Check(!fragment.isNull(), "what was grafted is a document of its own");
    const auto* const element = fragment->FindNode("");
    auto* const root = document.FindNode("");
    auto* const parent = key == root->nodeName() ? root : document.FindNode(key);
    const auto* const child = SystemServer::AcmXmlConfiguration::FindElement(element->nodeName(), parent);
    Fuzz::Check(child != nullptr && child->innerText() == element->innerText(), "it is found below " + key);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = Fuzz::Parts(data, size, 3);
    auto document = Fuzz::LoadXml(parts[0]);
    if (document.isNull()) {
        return 0;
    }
    const std::string key = Fuzz::FieldText(parts[1]);
    const std::string raw = Fuzz::FieldText(parts[2]);
    const std::string before = Fuzz::Saved(*document);
    if (Fuzz::Accepts([&] { return document->SetRawString(key, raw) == 0; })) {
        CheckGraft(*document, key, raw);
    } else {
        Fuzz::Check(Fuzz::Saved(*document) == before, "a refusal changes nothing");
    }
    auto again = Fuzz::LoadXml(Fuzz::Saved(*document));
    Fuzz::Check(!again.isNull(), "what was saved can be loaded");
    Fuzz::Check(Fuzz::WithoutBlanks(Fuzz::Saved(*again)) == Fuzz::WithoutBlanks(Fuzz::Saved(*document)),
                "what was saved and loaded is the same");
    return 0;
}
