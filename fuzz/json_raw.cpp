// JSON raw sets: what was stored is found, a refused document changes nothing, what is saved can be loaded.
// Input: document, key (empty for the whole document), raw text.
#include "fuzz_documents.h"

namespace {

using Fuzz::Check;

std::string TextAt(SystemServer::AcmJsonConfiguration& document, const std::string& key) {
    std::string text;
    return document.GetRawString(key, text) == 0 ? text : std::string();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = Fuzz::Parts(data, size, 3);
    auto document = Fuzz::LoadJson(parts[0]);
    if (document.isNull()) {
        return 0;
    }
    const std::string key = Fuzz::FieldText(parts[1]);
    const std::string raw = Fuzz::FieldText(parts[2]);
    const auto read = [&](const std::string& at) { return TextAt(*document, at); };
    const bool comparable = Fuzz::IsOrdinaryKey(key, read);
    const std::string before = Fuzz::Saved(*document);
    if (document->SetRawString(key, raw) == 0) {
        Check(!comparable || read(key) == raw, "the text is found at key " + key);
    } else {
        Check(!key.empty() || Fuzz::Saved(*document) == before, "a refused document changes nothing");
    }
    const std::string saved = Fuzz::Saved(*document);
    auto again = Fuzz::LoadJson(saved);
    Check(!again.isNull(), "what was saved can be loaded");
    Check(Fuzz::Saved(*again) == saved, "what was saved and loaded is the same");
    return 0;
}
