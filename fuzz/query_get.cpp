// Queries for values: each is what the library's own expansion of references yields, as far as that is
// bounded. Input: a letter ("j", "x" or "i") and a document, query.
#include "Poco/StringTokenizer.h"
#include "acm_value_lookup.h"
#include "fuzz_documents.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = Fuzz::Parts(data, size, 2);
    if (parts[0].empty()) {
        return 0;
    }
    const auto document = Fuzz::LoadKind(parts[0][0], parts[0].substr(1));
    if (document.isNull()) {
        return 0;
    }
    SystemServer::AcmWorkBudget budget;
    for (const std::string& key : Poco::StringTokenizer(Fuzz::FieldText(parts[1]), ",")) {
        const std::string value = Fuzz::Outcome([&] { return LookUpValue(*document, key, budget); });
        if (value == Poco::RangeException().className()) {
            break; // the library has no bound here
        }
        const std::string expected = Fuzz::Outcome([&] { return document->getString(key); });
        Fuzz::Check(value == expected, "key " + key + " has " + value + ", by the library " + expected);
    }
    return 0;
}
