#ifndef APP_CFG_INI_MGR_H
#define APP_CFG_INI_MGR_H

#include <cstdint>
#include <memory>
#include <string>

#include "app_cfg_mgr.h"

namespace SystemServer {

// A client's INI file. Read-only on disk: values can be changed in memory for the life of the item, and
// there is no saving, backup or restoring. Owned, called and locked as its base says.
class AppCfgIniMgr final : public AppCfgMgr {
public:
    // Loads the file, decrypting it when it is encrypted.
    AppCfgIniMgr(const std::string& path, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr);

    // Sets one entry of a section from "name=value". The name must exist above the first section, while the
    // section's entry is written; kept, since clients depend on it.
    int32_t SetRawData(const std::string& section, const std::string& data) override;

    // Raw reading is not supported, and reported as success with data as it was; kept.
    int32_t GetRawData(const std::string& key, std::string& data) override;

    void Backup() override {}
    void Restore() override {}
    std::shared_ptr<AppCfgMgr> DeepClone(const std::string& path) override;

protected:
    // Nothing is written, so that any bytes will do as long as there is room for them.
    bool Admits(const std::string& key, const std::string& value) override;

private:
    uint64_t m_bytes = 0; // keys and values in memory; guarded by m_documentMutex
};

} // namespace SystemServer

#endif
