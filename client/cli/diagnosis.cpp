// The service tells one file's state by the status of a creation that names it as file, backup and default at
// once: no copy is to be made of it then, and nothing stands behind it to recover from. What a creation of
// the whole item would do follows from the three states, in the order in which the service looks at them.
#include "diagnosis.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <unistd.h>

#include "appcfg/error.h"

namespace appcfg::cli {
namespace {

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
    case FileState::REFUSED:
        return "beyond a limit, or not to be read";
    }
    return "";
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
    std::copy_if(keys.begin(), keys.end(), std::back_inserter(missing), [&](const std::string& key) {
        try {
            item.Get(key);
            return false;
        } catch (const RequestRefused&) {
            return true;
        }
    });
    return missing;
}

} // namespace appcfg::cli
