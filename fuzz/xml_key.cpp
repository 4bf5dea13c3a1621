// XML keys: the resolver for raw text and the base's lookup of values address the same node.
// Input: document, key.
#include "Poco/DOM/Node.h"
#include "fuzz_documents.h"

namespace {

std::string TextAt(SystemServer::AcmXmlConfiguration& document, const std::string& key) {
    const Poco::XML::Node* const node = document.FindNode(key);
    if (node == nullptr) {
        throw Poco::NotFoundException(key);
    }
    return node->nodeType() == Poco::XML::Node::ATTRIBUTE_NODE ? node->getNodeValue() : node->innerText();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = Fuzz::Parts(data, size, 2);
    auto document = Fuzz::LoadXml(parts[0]);
    if (document.isNull()) {
        return 0;
    }
    const std::string key = Fuzz::FieldText(parts[1]);
    const std::string text = Fuzz::Outcome([&] { return TextAt(*document, key); });
    const std::string value = Fuzz::Outcome([&] { return document->getRawString(key); });
    Fuzz::Check(text == value, "key " + key + ": node " + text + ", value " + value);
    return 0;
}
