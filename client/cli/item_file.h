// The JSON files that describe items, the key files that they name, and files given as data.
#ifndef APPCFG_CLI_ITEM_FILE_H
#define APPCFG_CLI_ITEM_FILE_H

#include <cstddef>
#include <string>

#include "appcfg/item_description.h"

namespace appcfg::cli {

// Reads an item file. Members: "handle", "storage" and "path" are required; "backup", "default", "save",
// "backupStrategy" and "encryption" are not. A UsageError names the file and what is wrong with it.
ItemDescription ReadItemFile(const std::string& path);

// Reads 96 hexadecimal digits. The file must be closed to its group and to others, as it gives away what
// the item's files hold. No message shows any of it.
EncryptionKey ReadKeyFile(const std::string& path);

// The bytes of a regular file of at most `limit` bytes.
std::string ReadWholeFile(const std::string& path, size_t limit);

// "json", "xml" or "ini".
const char* StorageName(SystemServer::ConfigStorageType storage);

} // namespace appcfg::cli

#endif
