// The service tells one file's state by the status of a creation that names it as file, backup and default at
// once: no copy is to be made of it then, and nothing stands behind it to recover from. What a creation of
// the whole item would do follows from the three states, in the order in which the service looks at them.
#include "diagnosis.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <unistd.h>

#include "appcfg/error.h"
#include "encrypted_file.h"
#include "exit_status.h"
#include "fragment.h"
#include "item_file.h"

namespace appcfg::cli {
namespace {

// A file that this process may not read is not judged.
bool IsOfOtherKey(const std::string& path, const EncryptionKey& key) {
    constexpr size_t LIMIT = 16U << 20;
    std::string bytes;
    try {
        bytes = ReadWholeFile(path, LIMIT);
    } catch (const UsageError&) {
        return false;
    }
    try {
        Decrypted(bytes, key, path);
        return false;
    } catch (const UsageError&) {
        return true;
    }
}

FileFinding Find(Connection& connection, ItemDescription probe, const char* role, const std::string& path) {
    FileFinding finding{role, path, FileState::NONE, ""};
    if (path.empty()) {
        return finding;
    }
    probe.handle = Handle("appcfg", "check", static_cast<uint32_t>(getpid()));
    probe.path = probe.backupPath = probe.defaultPath = path;
    probe.saveStrategy = SystemServer::ConfigSaveStrategy::NONE;
    probe.backupStrategy = SystemServer::ConfigBackupStrategy::NONE;
    try {
        finding.text = connection.Create(probe).GetRaw();
        finding.state = FileState::GOOD;
    } catch (const RequestRefused& refused) {
        finding.state = refused.Status() == SystemServer::APP_CFG_STATUS_NOT_FOUND   ? FileState::MISSING
                        : refused.Status() == SystemServer::APP_CFG_STATUS_FORBIDDEN ? FileState::UNLOADABLE
                                                                                     : FileState::REFUSED;
    }
    if (finding.state == FileState::UNLOADABLE && probe.encryption && IsOfOtherKey(path, *probe.encryption)) {
        finding.state = FileState::OTHER_KEY;
    }
    return finding;
}

bool IsThere(const FileFinding& finding) {
    return finding.state != FileState::NONE && finding.state != FileState::MISSING;
}

// A file that is missing becomes a copy of the backup, or of the default, which becomes the backup as well.
// False when there is none.
bool RecoverMissing(Check& check, FileFinding& file, FileFinding& backup, const FileFinding& byDefault) {
    if (IsThere(backup)) {
        check.steps.emplace_back("the file is made anew, as a copy of the backup");
        file.state = backup.state;
        file.text = backup.text;
    } else if (backup.state == FileState::MISSING && IsThere(byDefault)) {
        check.steps.emplace_back("the file and the backup are made anew, as copies of the default");
        file.state = backup.state = byDefault.state;
        file.text = backup.text = byDefault.text;
    } else {
        check.steps.emplace_back(
            backup.state == FileState::NONE
                ? "it is refused with 400: the file is missing, and no backup path is given"
                : "it is refused with 404: neither file nor backup nor default is there");
        return false;
    }
    return true;
}

// A file that cannot be loaded is overwritten by the backup, or by the default, if one of them can be.
bool RecoverUnloadable(Check& check, FileFinding& file, const FileFinding& backup,
                       const FileFinding& byDefault) {
    for (const FileFinding* source : {&backup, &byDefault}) {
        if (source->state == FileState::GOOD) {
            check.steps.push_back(std::string("the file is overwritten by the ") + source->role);
            file.text = source->text;
            return true;
        }
    }
    check.steps.push_back(std::string("it is refused with 403: nothing can be loaded") +
                          (IsThere(byDefault) ? "; the file is overwritten by the default" : ""));
    return false;
}

void Foresee(Check& check, FileFinding file, FileFinding backup, const FileFinding& byDefault) {
    if (file.state == FileState::MISSING && !RecoverMissing(check, file, backup, byDefault)) {
        return;
    }
    if (file.state == FileState::REFUSED) {
        check.steps.emplace_back(
            "it is refused with 400: a limit, or a file that cannot be read; the log says which");
        return;
    }
    if (backup.state == FileState::MISSING) {
        check.steps.emplace_back("the backup is made anew, as a copy of the file");
        backup.state = file.state;
    }
    check.wouldLoad = file.state == FileState::GOOD || RecoverUnloadable(check, file, backup, byDefault);
    if (check.wouldLoad && backup.state == FileState::GOOD) {
        std::set<std::string> kept;
        std::istringstream loaded(file.text);
        for (std::string line; std::getline(loaded, line);) {
            kept.insert(line);
        }
        std::istringstream old(backup.text);
        for (std::string line; std::getline(old, line);) {
            if (kept.count(line) == 0) {
                check.lost.push_back(line);
            }
        }
    }
}

template <class Call>
std::optional<std::string> Unrefused(Call call) {
    try {
        return call();
    } catch (const RequestRefused&) {
        return std::nullopt;
    } catch (const InvalidArgument&) {
        return std::nullopt;
    }
}

// What stands at a key. Of JSON it is looked up here: each miss would be an error in the service's log.
std::optional<std::string> TextAt(const Item& item, const std::string& whole, const std::string& key) {
    if (whole.rfind('{', 0) == 0) {
        return JsonAt(whole, key);
    }
    return Unrefused([&] { return whole.empty() ? item.Get(key) : item.GetRaw(key); });
}

std::string KindOf(const std::string& text) {
    switch (text.empty() ? '\0' : text.front()) {
    case '{':
        return "an object that lacks the rest";
    case '[':
        return "an array of " + std::to_string(nlohmann::json::parse(text).size());
    case '<':
        return "an element that lacks the rest";
    default:
        return "a value with nothing below it";
    }
}

// Empty, or the part of the key in brackets that would be an index and is none.
std::string WrongIndex(const std::string& key) {
    for (size_t at = 0; (at = key.find('[', at)) != std::string::npos; ++at) {
        const size_t end = std::min(key.find(']', at), key.size());
        const std::string index = key.substr(at + 1, end - at - 1);
        if (index.rfind('@', 0) == 0) {
            break; // its value may hold brackets
        }
        try {
            ParseValue<uint32_t>(index);
        } catch (const ValueError&) {
            return key.substr(at, end - at + 1);
        }
    }
    return "";
}

std::string WhyMissing(const Item& item, const std::string& whole, const std::string& key) {
    const std::string why = whole.empty() ? "has no value" : "not in the document";
    if (const std::string index = WrongIndex(key); !index.empty()) {
        return why + "; " + index + " is no index from 0 to 4294967295";
    }
    std::string parent = key;
    while (!whole.empty() && LastStep(parent) > 0) {
        parent.resize(LastStep(parent));
        if (const auto text = TextAt(item, whole, parent)) {
            return why + "; " + parent + " is " + KindOf(*text);
        }
    }
    return why;
}

bool IsUtf8(const std::string& text) {
    try {
        nlohmann::json(text).dump();
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

bool HoldsControl(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) < ' ' && c != '\t' && c != '\n' && c != '\r';
    });
}

} // namespace

const char* StateName(FileState state) {
    switch (state) {
    case FileState::NONE:
        return "none";
    case FileState::MISSING:
        return "missing";
    case FileState::GOOD:
        return "good";
    case FileState::UNLOADABLE:
        return "cannot be loaded";
    case FileState::OTHER_KEY:
        return "cannot be loaded: not in this key, or cut";
    case FileState::REFUSED:
        return "beyond a limit, or not to be read";
    }
    return "";
}

std::string FindingLine(const FileFinding& file) {
    return std::string(file.role) + (file.path.empty() ? "" : " " + file.path) + ": " + StateName(file.state);
}

Check CheckItem(Connection& connection, const ItemDescription& description) {
    Check check{{Find(connection, description, "file", description.path),
                 Find(connection, description, "backup", description.backupPath),
                 Find(connection, description, "default", description.defaultPath)},
                false,
                {},
                {}};
    Foresee(check, check.files[0], check.files[1], check.files[2]);
    return check;
}

std::vector<std::string> KeysWithoutValue(const Item& item, const std::vector<std::string>& keys) {
    std::vector<std::string> missing;
    std::copy_if(keys.begin(), keys.end(), std::back_inserter(missing),
                 [&](const std::string& key) { return !Unrefused([&] { return item.Get(key); }); });
    return missing;
}

std::vector<std::string> WhyNotSet(const Item& item, const Pairs& values) {
    const std::string whole = item.GetRaw();
    std::vector<std::string> reasons;
    for (const auto& [key, value] : values) {
        if (!TextAt(item, whole, key)) {
            reasons.push_back(key + ": " + WhyMissing(item, whole, key));
        } else if (!whole.empty() && !IsUtf8(value)) {
            reasons.push_back(key + ": the value is no UTF-8");
        } else if (whole.rfind('<', 0) == 0 && HoldsControl(value)) {
            reasons.push_back(key + ": the value holds a control character, which XML cannot");
        }
    }
    if (reasons.empty()) {
        reasons.emplace_back("which value, and why, cannot be told from here; the service's log may say");
    }
    return reasons;
}

} // namespace appcfg::cli
