#include "app_cfg_item_creation.h"

#include <Poco/Path.h>

#include <algorithm>
#include <utility>

#include "acm_file.h"
#include "acm_limit.h"
#include "app_cfg_backup_strategy_factory.h"
#include "app_cfg_crypto_mgr_factory.h"
#include "app_cfg_fault.h"
#include "app_cfg_limits.h"
#include "app_cfg_log.h"
#include "app_cfg_mgr_factory.h"
#include "app_cfg_record.h"
#include "app_cfg_save_strategy_factory.h"

namespace SystemServer {

namespace {

bool IsUnixPath(const std::string& path) {
    return Poco::Path().tryParse(path, Poco::Path::PATH_UNIX);
}

// A replaced item stops its backup strategy first; a deleted one stops its save strategy first.
void EndOldItem(const AppCfgMgmtServer::AppCfgMgmtItem& item) {
    for (const auto& strategy : {item.backupStrategy, item.saveStrategy}) {
        if (strategy) {
            strategy->Stop();
        }
    }
    item.CatchUp();
}

void StartStrategy(const char* name, AppCfgStrategy& strategy) {
    ACM_LOG(ACM_INFO, "start %s strategy ...", name);
    strategy.Start();
    ACM_LOG(ACM_INFO, "start %s strategy done.", name);
}

} // namespace

AppCfgItemCreation::AppCfgItemCreation(const AppCfgCreateReq& request, kestrel_connection& conn) :
    m_request(request), m_conn(conn),
    m_key(AppCfgMgmtServer::GetAppCfgKey(&request.hndl)), m_item{conn.fd, nullptr, nullptr, nullptr} {}

// For an item that was not registered; registering empties m_item.
AppCfgItemCreation::~AppCfgItemCreation() {
    m_item.Abandon();
}

uint16_t AppCfgItemCreation::Run() {
    if (!IsBelowItemLimits() || !EraseOldItem()) {
        return APP_CFG_STATUS_BAD_REQUEST;
    }
    ExpandPaths();
    if (!ArePathsValid()) {
        return APP_CFG_STATUS_BAD_REQUEST;
    }
    LogPaths();
    RequireUsableFiles();
    if (!RecoverMissingFile()) {
        return APP_CFG_STATUS_NOT_FOUND;
    }
    if (!CreateCryptoMgr() || !LoadConfiguration()) {
        return APP_CFG_STATUS_FORBIDDEN;
    }
    if (m_item.appCfgMgr->IsConfigWritable()) {
        StartStrategies();
    }
    Register();
    return APP_CFG_STATUS_OK;
}

// The item that this one will replace does not count.
bool AppCfgItemCreation::IsBelowItemLimits() const {
    const auto& items = AppCfgMgmtServer::m_appCfgMgmtItemMap;
    const auto isOurs = [this](const auto& entry) { return entry.second.connFd == m_conn.fd; };
    const auto old = items.find(m_key);
    const size_t replaced = old == items.end() ? 0 : 1;
    const size_t all = items.size() - replaced;
    const auto ofConnection = static_cast<size_t>(std::count_if(items.begin(), items.end(), isOurs)) -
                              (replaced == 1 && isOurs(*old) ? 1 : 0);
    if (all < MAX_ITEMS && ofConnection < MAX_ITEMS_PER_CONNECTION) {
        return true;
    }
    ACM_LOG(ACM_ERROR, "connect fd[%d] : too many items: %zu, %zu of them of this connection.", m_conn.fd,
            all, ofConnection);
    return false;
}

// False when the old item's last save failed; it then stays registered.
bool AppCfgItemCreation::EraseOldItem() {
    auto& items = AppCfgMgmtServer::m_appCfgMgmtItemMap;
    const auto old = items.find(m_key);
    if (old == items.end()) {
        return true;
    }
    ACM_LOG(ACM_ERROR, "connect fd[%d] : appCfgKey[%s] already exist.", m_conn.fd, m_key.c_str());
    if (!Fence(LOG_FILE, __LINE__, [&] { EndOldItem(old->second); })) {
        old->second.GoOn();
        return false;
    }
    items.erase(old);
    return true;
}

void AppCfgItemCreation::ExpandPaths() {
    AppCfgMgmtServer::ConnectionInfo info;
    AppCfgMgmtServer::GetConnectionInfo(&m_conn, &info);
    m_cfgPath = AppCfgMgmtServer::ExpandPath(FieldText(m_request.cfgPath), &info);
    m_backupPath = AppCfgMgmtServer::ExpandPath(FieldText(m_request.backupPath), &info);
    m_defaultPath = AppCfgMgmtServer::ExpandPath(FieldText(m_request.defaultPath), &info);
}

bool AppCfgItemCreation::ArePathsValid() const {
    if (!m_backupPath.empty() && !IsUnixPath(m_backupPath)) {
        ACM_LOG(ACM_ERROR, "connect fd[%d] : invalid backup path[%s].", m_conn.fd, m_backupPath.c_str());
        return false;
    }
    if (!m_defaultPath.empty() && !IsUnixPath(m_defaultPath)) {
        ACM_LOG(ACM_ERROR, "connect fd[%d] : invalid default path[%s].", m_conn.fd, m_defaultPath.c_str());
        return false;
    }
    return true;
}

void AppCfgItemCreation::LogPaths() const {
    ACM_LOG(ACM_INFO, "------------cfg create info------------");
    ACM_LOG(ACM_INFO, "config path:%s", m_cfgPath.c_str());
    ACM_LOG(ACM_INFO, "backup path:%s", m_backupPath.c_str());
    ACM_LOG(ACM_INFO, "default path:%s", m_defaultPath.c_str());
    ACM_LOG(ACM_INFO, "---------------------------------------");
}

// Checked before any file is opened or copied: reading a FIFO would block the service, reading a device may
// never end. A backup or default path that is not reachable counts as no copy; the item is created without
// it.
void AppCfgItemCreation::RequireUsableFiles() const {
    RequireRegularFile(m_cfgPath);
    if (IsReachable(m_backupPath)) {
        RequireWriteTarget(m_backupPath);
    }
    if (IsReachable(m_defaultPath)) {
        RequireRegularFile(m_defaultPath);
    }
}

bool AppCfgItemCreation::RecoverMissingFile() {
    if (FileExists(m_cfgPath)) {
        if (HasUsableBackupPath() && !FileExists(m_backupPath)) {
            CopyRegularFile(m_cfgPath, m_backupPath);
        }
        return true;
    }
    ACM_LOG(ACM_INFO, "connect fd[%d] : config file[%s] not exists.try to recover...\n", m_conn.fd,
            m_cfgPath.c_str());
    // For an empty path this throws, so that a missing file without a backup path is answered 400.
    if (FileExists(m_backupPath)) {
        LogRestore("try to ", "backup", m_backupPath, "...");
        CopyRegularFile(m_backupPath, m_cfgPath);
        LogRestore("", "backup", m_backupPath, " done.");
        return true;
    }
    if (FileExists(m_defaultPath)) {
        LogRestore("try to ", "default", m_defaultPath, "...");
        CopyRegularFile(m_defaultPath, m_cfgPath);
        if (HasUsableBackupPath()) {
            CopyRegularFile(m_defaultPath, m_backupPath);
        }
        LogRestore("", "default", m_defaultPath, " done.");
        TellDefaultTaken();
        return true;
    }
    ACM_LOG(ACM_ERROR, "connect fd[%d] : config file[%s] not exists & recover fail.\n", m_conn.fd,
            m_cfgPath.c_str());
    return false;
}

void AppCfgItemCreation::LogRestore(const char* begin, const char* sourceName, const std::string& source,
                                    const char* end) const {
    ACM_LOG(ACM_INFO, "connect fd[%d] : %srestore config file[%s] from %s[%s]%s\n", m_conn.fd, begin,
            m_cfgPath.c_str(), sourceName, source.c_str(), end);
}

bool AppCfgItemCreation::HasUsableBackupPath() const {
    return !m_backupPath.empty() && IsReachable(m_backupPath);
}

// At the error level, for the operator: values that were set before are lost.
void AppCfgItemCreation::TellDefaultTaken() const {
    ACM_LOG(ACM_ERROR, "connect fd[%d] : appCfgKey[%s] config file[%s] was taken from default[%s].",
            m_conn.fd, m_key.c_str(), m_cfgPath.c_str(), m_defaultPath.c_str());
}

bool AppCfgItemCreation::CreateCryptoMgr() {
    ACM_LOG(ACM_INFO, "create crypto mgr start...");
    if (m_request.cryptoType != ConfigCryptoType::NONE) {
        m_cryptoMgr = AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(m_request.cryptoType, m_cfgPath,
                                                                    m_request.cryptoParam);
        if (!m_cryptoMgr) {
            ACM_LOG(ACM_ERROR, "connect fd[%d] : invalid crypto type[%d] or param.", m_conn.fd,
                    static_cast<int>(m_request.cryptoType));
            return false;
        }
    }
    ACM_LOG(ACM_INFO, "create crypto mgr done.");
    return true;
}

bool AppCfgItemCreation::LoadConfiguration() {
    ACM_LOG(ACM_INFO, "create app cfg mgr start...");
    m_item.appCfgMgr = AppCfgMgrFactory::CreateAppCfgMgr(m_request.storageType, m_cfgPath, m_cryptoMgr);
    if (!m_item.appCfgMgr && !LoadFrom("backup", m_backupPath)) {
        if (!LoadFrom("default", m_defaultPath)) {
            ACM_LOG(ACM_ERROR,
                    "connect fd[%d] : invalid config file format or unsupported config storage type[%d].",
                    m_conn.fd, static_cast<int>(m_request.storageType));
            return false;
        }
        TellDefaultTaken();
    }
    ACM_LOG(ACM_INFO, "create app cfg mgr done.");
    return true;
}

// Overwrites the file, which could not be loaded, with a copy and loads that.
bool AppCfgItemCreation::LoadFrom(const char* sourceName, const std::string& sourcePath) {
    LogRestore("try to ", sourceName, sourcePath, "...");
    m_item.appCfgMgr =
        AppCfgMgmtServer::CreateAppCfgMgrByFile(m_request.storageType, m_cfgPath, sourcePath, m_cryptoMgr);
    LogRestore("", sourceName, sourcePath, m_item.appCfgMgr ? " done." : " fail.");
    return m_item.appCfgMgr != nullptr;
}

void AppCfgItemCreation::StartStrategies() {
    AppCfgMgr& manager = *m_item.appCfgMgr;
    m_item.saveStrategy =
        AppCfgSaveStrategyFactory::CreateAppCfgSaveStrategy(m_request.saveStrategy, manager);
    if (m_item.saveStrategy) {
        StartStrategy("save", *m_item.saveStrategy);
    }
    m_item.backupStrategy =
        AppCfgBackupStrategyFactory::CreateAppCfgBackupStrategy(m_request.backupStrategy, manager);
    if (m_item.backupStrategy) {
        StartStrategy("backup", *m_item.backupStrategy);
        SetCopyPaths();
    }
}

// An item without a backup strategy has neither path on its manager: restoring then only reloads its file.
void AppCfgItemCreation::SetCopyPaths() {
    if (!m_backupPath.empty()) {
        ACM_LOG(ACM_INFO, "set backup path [%s]...", m_backupPath.c_str());
        m_item.appCfgMgr->SetBackupPath(m_backupPath);
        ACM_LOG(ACM_INFO, "set backup path done.");
        ExamineBackup();
    }
    if (!m_defaultPath.empty()) {
        ACM_LOG(ACM_INFO, "set default path [%s]...", m_defaultPath.c_str());
        m_item.appCfgMgr->SetDefaultPath(m_defaultPath);
        ACM_LOG(ACM_INFO, "set default path done.");
    }
}

// A crash may have torn the backup. Then the next save writes the backup first: a crash while the file is
// being written would otherwise leave no good copy.
void AppCfgItemCreation::ExamineBackup() {
    bool isSame = true;
    const bool isRead = Fence(LOG_FILE, __LINE__, [&] {
        isSame = !IsRegularFile(m_backupPath) || ReadRegularFile(m_backupPath) == ReadRegularFile(m_cfgPath);
    });
    if (!isRead || isSame) {
        return;
    }
    try {
        m_item.appCfgMgr->DeepClone(m_backupPath);
    } catch (const AcmLimitException&) {
        // Too large to be loaded, but not torn.
    } catch (const std::exception& fault) {
        if (IsShortage(fault) || dynamic_cast<const Poco::FileException*>(&fault) != nullptr) {
            LogFencedFault(LOG_FILE, __LINE__);
            return;
        }
        ACM_LOG(ACM_INFO, "connect fd[%d] : backup[%s] cannot be loaded and is written first.", m_conn.fd,
                m_backupPath.c_str());
        m_item.appCfgMgr->NoteTorn(AcmFileStore::BACKUP);
    }
}

void AppCfgItemCreation::Register() {
    ACM_LOG(ACM_INFO, "create new app cfg mgmt item... ");
    ACM_LOG(ACM_INFO, "------------cfg info------------");
    ACM_LOG(ACM_INFO, "config path:%s", m_cfgPath.c_str());
    ACM_LOG(ACM_INFO, "config hndl:%s", m_key.c_str());
    ACM_LOG(ACM_INFO, "config writable:%s", m_item.appCfgMgr->IsConfigWritable() ? "true" : "false");
    ACM_LOG(ACM_INFO, "config save strategy:%d", static_cast<int>(m_request.saveStrategy));
    ACM_LOG(ACM_INFO, "config backup strategy:%d", static_cast<int>(m_request.backupStrategy));
    ACM_LOG(ACM_INFO, "--------------------------------");
    AppCfgMgmtServer::m_appCfgMgmtItemMap.emplace(m_key, m_item);
    m_item = {};
    ACM_LOG(ACM_INFO, "create new app cfg mgmt item done. ");
}

std::shared_ptr<AppCfgMgr>
AppCfgMgmtServer::CreateAppCfgMgrByFile(ConfigStorageType storageType, const std::string& cfgPath,
                                        const std::string& sourcePath,
                                        const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) {
    if (sourcePath.empty() || !FileExists(sourcePath)) {
        return nullptr;
    }
    AppCfgMgr::Replace(sourcePath, cfgPath);
    return AppCfgMgrFactory::CreateAppCfgMgr(storageType, cfgPath, cryptoMgr);
}

} // namespace SystemServer
