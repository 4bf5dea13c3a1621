// Sets and raw sets in any order: what was set is found, what was refused has changed nothing, and what is
// saved in the end loads again and is the same. Input: a letter ("j", "x" or "i") and a document, then
// queries, and raw sets as "=", the key, a line feed and the text.
#include "Poco/String.h"
#include "Poco/StringTokenizer.h"
#include "app_cfg_mgr_factory.h"
#include "fuzz_documents.h"

namespace {

using namespace SystemServer;

// Null when the service refuses the document.
std::shared_ptr<AppCfgMgr> LoadManager(const std::string& input) {
    const std::string kinds = "ix j"; // by storage type
    const size_t type = input.empty() ? std::string::npos : kinds.find(input[0]);
    if (type == std::string::npos) {
        return nullptr;
    }
    Fuzz::WriteFile("document", input.substr(1));
    std::shared_ptr<AppCfgMgr> manager;
    Fuzz::Accepts([&] {
        manager = AppCfgMgrFactory::CreateAppCfgMgr(static_cast<ConfigStorageType>(type),
                                                    Fuzz::PathOf("document"), nullptr);
        return true;
    });
    return manager;
}

void CheckLoadsAgain(char kind, AppCfgMgr& manager) {
    if (!manager.IsConfigWritable()) {
        return;
    }
    const auto text = [](AppCfgMgr& of) {
        std::string raw;
        Fuzz::Check(of.GetRawData("", raw) == 0, "a document has its text");
        return Fuzz::WithoutBlanks(raw);
    };
    std::ostringstream saved;
    manager.Save(saved);
    Fuzz::Check(saved.good(), "what was accepted can be saved");
    const auto again = LoadManager(kind + saved.str());
    Fuzz::Check(again != nullptr, "what was saved loads again");
    Fuzz::Check(text(*again) == text(manager), "what was saved and loaded is the same");
}

std::string ValueAt(const AppCfgMgr& manager, const std::string& key) {
    std::vector<std::string> values;
    const bool found = Fuzz::Accepts([&] { return manager.GetData(key, values) == 0 && !values.empty(); });
    return found ? values.front() : std::string();
}

// What a set that was taken shows: the XML library replaces the text that an element begins with, and leaves
// one alone that begins with something else.
bool Shows(char kind, const std::string& value, const std::string& before, const std::string& after) {
    return kind == 'x' ? after == before || after.rfind(value, 0) == 0 : after == value;
}

void CheckSet(AppCfgMgr& manager, char kind, const std::string& item) {
    const std::string key = item.substr(0, item.find('|'));
    const std::string value = item.substr(std::min(key.size() + 1, item.size()));
    const auto read = [&](const std::string& at) { return ValueAt(manager, at); };
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
    auto parts = Fuzz::Parts(data, size, 0);
    const std::string document = parts.front();
    const auto manager = LoadManager(document);
    if (manager == nullptr) {
        return 0;
    }
    parts.erase(parts.begin());
    for (const std::string& part : parts) {
        const std::string text = Fuzz::FieldText(part);
        if (text.rfind('=', 0) == 0) {
            const size_t end = std::min(text.find('\n'), text.size());
            const std::string raw = text.substr(std::min(end + 1, text.size()));
            Fuzz::Accepts([&] { return manager->SetRawData(text.substr(1, end - 1), raw) == 0; });
            continue;
        }
        for (const std::string& item :
             Poco::StringTokenizer(text, ",", Poco::StringTokenizer::TOK_IGNORE_EMPTY)) {
            CheckSet(*manager, document[0], item);
        }
    }
    CheckLoadsAgain(document[0], *manager);
    return 0;
}
