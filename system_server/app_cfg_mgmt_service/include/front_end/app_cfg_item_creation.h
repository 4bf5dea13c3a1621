#ifndef APP_CFG_ITEM_CREATION_H
#define APP_CFG_ITEM_CREATION_H

#include <memory>
#include <string>

#include "app_cfg_mgmt_server.h"

namespace SystemServer {

// Turns one create request into a registered item, step by step. Lives on the stack of the request's
// handler, which holds the registry's lock; what it started is stopped again unless the item was registered.
class AppCfgItemCreation {
public:
    // The request must outlive this object.
    AppCfgItemCreation(const AppCfgCreateReq& request, kestrel_connection& conn);
    AppCfgItemCreation(const AppCfgItemCreation&) = delete;
    AppCfgItemCreation& operator=(const AppCfgItemCreation&) = delete;
    ~AppCfgItemCreation();

    // The status of the reply. Throws what the file and document libraries throw; files that were recovered
    // until then stay recovered.
    uint16_t Run() ACM_REQUIRES(AppCfgMgmtServer::m_itemMapMutex);

private:
    bool IsBelowItemLimits() const ACM_REQUIRES(AppCfgMgmtServer::m_itemMapMutex);
    bool EraseOldItem() ACM_REQUIRES(AppCfgMgmtServer::m_itemMapMutex);
    void ExpandPaths();
    bool ArePathsValid() const;
    void LogPaths() const;
    void RequireUsableFiles() const;
    bool RecoverMissingFile();
    void LogRestore(const char* begin, const char* sourceName, const std::string& source,
                    const char* end) const;
    bool HasUsableBackupPath() const;
    void TellDefaultTaken() const;
    bool CreateCryptoMgr();
    bool LoadConfiguration();
    bool LoadFrom(const char* sourceName, const std::string& sourcePath);
    void StartStrategies();
    void SetCopyPaths();
    void ExamineBackup();
    void Register() ACM_REQUIRES(AppCfgMgmtServer::m_itemMapMutex);

    const AppCfgCreateReq& m_request;
    kestrel_connection& m_conn;
    const std::string m_key;
    std::string m_cfgPath;
    std::string m_backupPath;
    std::string m_defaultPath;
    std::shared_ptr<AppCfgCryptoMgr> m_cryptoMgr;
    AppCfgMgmtServer::AppCfgMgmtItem m_item;
};

} // namespace SystemServer

#endif
