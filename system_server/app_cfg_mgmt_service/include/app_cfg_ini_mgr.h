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

    // Sets one entry of a section from "name=value". The name must exist outside any section, although the
    // section's entry is what is written; kept, since clients depend on it.
    int32_t SetRawData(const std::string& section, const std::string& data) override;

    // Raw reading is not supported, but reported as success with data unchanged; kept, since clients depend
    // on it.
    int32_t GetRawData(const std::string& key, std::string& data) override;

    void Backup() override {}
    void Restore() override {}
    std::shared_ptr<AppCfgMgr> DeepClone(const std::string& path) override;

protected:
    // Any bytes will do, since nothing is written; only their number is limited.
    bool Admits(const std::string& key, const std::string& value) override ACM_REQUIRES(m_documentMutex);

private:
    uint64_t m_bytes ACM_GUARDED_BY(m_documentMutex) = 0; // keys and values in memory
};

} // namespace SystemServer

#endif
