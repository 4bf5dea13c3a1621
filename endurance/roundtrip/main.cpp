// roundtrip FOLDER...: each XML and JSON file below the folders becomes a configuration file, is saved and
// loaded again. It must come back as it was but for the blanks that the writer of XML adds, or be refused
// before anything is written. The files themselves are only copied.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "acm_limit.h"
#include "app_cfg_mgr_factory.h"
#include "pl/pl_log_control.h"
#include "support/without_blanks.h"

namespace {

using namespace SystemServer;
using Support::WithoutBlanks;
namespace fs = std::filesystem;

std::string TextOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string Document(AppCfgMgr& manager) {
    std::string text;
    return manager.GetRawData("", text) == 0 ? WithoutBlanks(text) : "(unreadable)";
}

// What became of the file; outcomes that must not be begin with "LOST".
std::string Outcome(ConfigStorageType type, const fs::path& copy) {
    try {
        const auto manager = AppCfgMgrFactory::CreateAppCfgMgr(type, copy, nullptr);
        if (manager == nullptr) {
            return "not well-formed";
        }
        manager->Save();
        const std::string saved = TextOf(copy);
        const auto again = AppCfgMgrFactory::CreateAppCfgMgr(type, copy, nullptr);
        if (again == nullptr) {
            return "LOST: does not load again";
        }
        again->Save();
        const bool isSame =
            Document(*again) == Document(*manager) && WithoutBlanks(TextOf(copy)) == WithoutBlanks(saved);
        return isSame ? "came back" : "LOST: came back as another";
    } catch (const AcmLimitException& refusal) {
        return "refused: " + refusal.message().substr(0, refusal.message().find(':'));
    }
}

} // namespace

int main(int argc, char** argv) {
    pl_log_set_sink([](void*, int, int, const char*, int, const char*) {}, nullptr);
    char folder[] = "/tmp/roundtrip-XXXXXX";
    if (argc < 2 || mkdtemp(folder) == nullptr) {
        std::fprintf(stderr, "usage: roundtrip FOLDER...\n");
        return 2;
    }
    const fs::path copy = fs::path(folder) / "file";
    std::map<std::string, size_t> counts;
    bool isLost = false;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry :
             fs::recursive_directory_iterator(argv[i], fs::directory_options::skip_permission_denied)) {
            const std::string kind = entry.path().extension();
            if (!entry.is_regular_file() || entry.is_symlink() || (kind != ".xml" && kind != ".json")) {
                continue;
            }
            fs::copy_file(entry.path(), copy, fs::copy_options::overwrite_existing);
            const std::string outcome =
                Outcome(kind == ".xml" ? ConfigStorageType::XML : ConfigStorageType::JSON, copy);
            ++counts[kind.substr(1) + ": " + outcome];
            if (outcome.rfind("LOST", 0) == 0) {
                isLost = true;
                std::printf("%s: %s\n", entry.path().c_str(), outcome.c_str());
            }
        }
    }
    fs::remove_all(folder);
    for (const auto& [outcome, count] : counts) {
        std::printf("%6zu %s\n", count, outcome.c_str());
    }
    return isLost ? 1 : 0;
}
