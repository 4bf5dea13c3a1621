// Files of encrypted items, without the service: AES-256-CBC as it writes them.
#ifndef APPCFG_CLI_ENCRYPTED_FILE_H
#define APPCFG_CLI_ENCRYPTED_FILE_H

#include <string>

#include "appcfg/item_description.h"

namespace appcfg::cli {

std::string Encrypted(const std::string& text, const EncryptionKey& key);

// UsageError, which names the file, when the bytes are not of this key, or are cut. About one wrong key in
// 256 yields rubbish instead: there is nothing in the file to tell.
std::string Decrypted(const std::string& bytes, const EncryptionKey& key, const std::string& path);

} // namespace appcfg::cli

#endif
