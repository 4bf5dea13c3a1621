// The JSON files that describe items, the key files that they name, and files given as data.
#ifndef APPCFG_CLI_ITEM_FILE_H
#define APPCFG_CLI_ITEM_FILE_H

#include <cstddef>
#include <string>
#include <vector>

#include "appcfg/item_description.h"

namespace appcfg::cli {

// What an item file may say.
struct ItemMember {
    const char* name; // with a point: the member of a member
    const char* flag; // of a command that writes such a file
    const char* type; // of the flag's value
    const char* meaning;
    bool required;
};
const std::vector<ItemMember>& ItemMembers();

// Reads an item file. A UsageError names the file and what is wrong with it.
ItemDescription ReadItemFile(const std::string& path);

// Writes one, of the members' values in their order; empty ones are left out. UsageError when it could not be
// read again, or is there already, unless it may be replaced.
void WriteItemFile(const std::string& path, const std::vector<std::string>& values, bool replaces);

// Reads 96 hexadecimal digits. The file must be closed to its group and to others, as it gives away what
// the item's files hold. No message shows any of it.
EncryptionKey ReadKeyFile(const std::string& path);

// The bytes of a regular file of at most `limit` bytes.
std::string ReadWholeFile(const std::string& path, size_t limit);

// Puts the bytes in place of the file at once, with the mode and owner that it has, if it is there: a crash
// leaves either.
void ReplaceFile(const std::string& path, const std::string& bytes);

// "json", "xml" or "ini".
const char* StorageName(SystemServer::ConfigStorageType storage);

} // namespace appcfg::cli

#endif
