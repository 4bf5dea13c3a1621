// Queries that set values: what was set is found, and what was refused has changed nothing.
// Input: a letter ("j", "x" or "i") and a document, query.
#include "Poco/String.h"
#include "Poco/StringTokenizer.h"
#include "fuzz_items.h"

namespace {

// What a set that was taken shows: the XML library replaces the text that an element begins with, and leaves
// one alone that begins with something else.
bool Shows(char kind, const std::string& value, const std::string& before, const std::string& after) {
    return kind == 'x' ? after == before || after.rfind(value, 0) == 0 : after == value;
}

void CheckSet(SystemServer::AppCfgMgr& manager, char kind, const std::string& item) {
    const std::string key = item.substr(0, item.find('|'));
    const std::string value = item.substr(std::min(key.size() + 1, item.size()));
    const auto read = [&](const std::string& at) { return Fuzz::ValueAt(manager, at); };
    // A get trims keys and expands references.
    const bool comparable = Poco::trim(key) == key && value.find("${") == std::string::npos &&
                            (kind != 'j' || Fuzz::IsOrdinaryKey(key, read));
    const std::string before = read(key);
    const bool taken = Fuzz::Accepts([&] { return manager.SetData(item) == 0; });
    Fuzz::Check(taken || read(key) == before, "a refused set changes nothing: " + item);
    Fuzz::Check(!taken || !comparable || Shows(kind, value, before, read(key)), "it is found: " + item);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = Fuzz::Parts(data, size, 2);
    const auto manager = Fuzz::LoadManager(parts[0]);
    for (const std::string& item : Poco::StringTokenizer(Fuzz::FieldText(parts[1]), ",")) {
        if (manager != nullptr && !item.empty()) {
            CheckSet(*manager, parts[0][0], item);
        }
    }
    return 0;
}
