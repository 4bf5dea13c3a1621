// What a client tells the service about an item when it creates it.
#ifndef APPCFG_ITEM_DESCRIPTION_H
#define APPCFG_ITEM_DESCRIPTION_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "app_cfg_types.h"
#include "appcfg/handle.h"

namespace appcfg {

// AES-256-CBC key and IV. Copies are independent; each is overwritten when it goes away.
struct EncryptionKey {
    std::array<uint8_t, 32> key{};
    std::array<uint8_t, 16> iv{};

    EncryptionKey() = default;
    EncryptionKey(const EncryptionKey&) = default;
    EncryptionKey& operator=(const EncryptionKey&) = default;
    ~EncryptionKey();

    // 64 hexadecimal digits of key, then 32 of IV; blanks and line ends are skipped. InvalidArgument, which
    // never shows the text, otherwise.
    static EncryptionKey FromHex(std::string_view text);
};

// Paths have at most 255 bytes and may hold ${default_setting_path}, ${default_backup_path} (each ends in a
// slash) and ${container_root_path}. An empty backup or default path means that there is none. The service
// keeps the two only for an item whose backup strategy is not NONE: without one, restoring reloads the file.
struct ItemDescription {
    Handle handle;
    SystemServer::ConfigStorageType storage = SystemServer::ConfigStorageType::JSON;
    std::string path{};
    std::string backupPath{};
    std::string defaultPath{};
    SystemServer::ConfigSaveStrategy saveStrategy = SystemServer::ConfigSaveStrategy::INSTANT;
    SystemServer::ConfigBackupStrategy backupStrategy = SystemServer::ConfigBackupStrategy::INSTANT;
    std::optional<EncryptionKey> encryption{};
};

} // namespace appcfg

#endif
