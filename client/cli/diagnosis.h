// Why a request is refused, and what a creation would do: found out by asking the service more, without
// changing anything.
#ifndef APPCFG_CLI_DIAGNOSIS_H
#define APPCFG_CLI_DIAGNOSIS_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "appcfg/connection.h"

namespace appcfg::cli {

// What the service makes of one file in the item's format and encryption.
enum class FileState {
    NONE, // no path is given
    MISSING,
    GOOD,
    UNLOADABLE, // malformed, another format, or another key
    OTHER_KEY,  // of these the one that does not decrypt, where that can be seen from here
    REFUSED,    // beyond a limit, or not to be read: a creation is refused, and no file is touched
};

struct FileFinding {
    const char* role; // "file", "backup" or "default"
    std::string path;
    FileState state;
    std::string text; // of a good one: the document as the service has it
};

// What is there, and what a creation would do with it.
struct Check {
    std::vector<FileFinding> files; // file, backup, default
    bool wouldLoad;
    std::vector<std::string> steps; // what a creation would do, a sentence each
    std::vector<std::string> lost;  // lines of the backup's document that the loaded one lacks
};

// Items of a handle of their own, which are never saved, load the files in turn: nothing is written.
Check CheckItem(Connection& connection, const ItemDescription& description);

const char* StateName(FileState state);

// "ROLE PATH: STATE".
std::string FindingLine(const FileFinding& file);

// The keys among these that have no value, of a get that was refused.
std::vector<std::string> KeysWithoutValue(const Item& item, const std::vector<std::string>& keys);

using Pairs = std::vector<std::pair<std::string, std::string>>;

// Why each of these cannot be set that cannot, as "KEY: WHY", of a set that was refused; one line that says
// so when it cannot be told.
std::vector<std::string> WhyNotSet(const Item& item, const Pairs& values);

} // namespace appcfg::cli

#endif
