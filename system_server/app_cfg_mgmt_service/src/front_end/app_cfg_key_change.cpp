#include "app_cfg_key_change.h"

#include <Poco/Exception.h>

#include <cerrno>

#include "acm_file.h"
#include "app_cfg_crypto_mgr_factory.h"
#include "app_cfg_log.h"

namespace SystemServer {

namespace {

bool IsForbidden(int error) {
    return error == EROFS || error == EACCES || error == EPERM;
}

// A status of 200 promises that the files were rewritten. A backup path that is not reachable counts as no
// backup.
void RequireWritten(AppCfgMgr& manager, AcmFileStore::Copy copy) {
    const std::string path = copy == AcmFileStore::CFG ? manager.GetCfgPath() : manager.GetBackupPath();
    if (manager.IsBehind(copy) && (copy == AcmFileStore::CFG || IsReachable(path))) {
        throw Poco::WriteFileException(path);
    }
}

// The default is rewritten before the others, and may be the only good copy while one of them is torn: they
// are made whole first.
void MendCopies(AppCfgMgr& manager) {
    if (manager.GetDefaultPath().empty()) {
        return;
    }
    if (manager.IsTorn(AcmFileStore::CFG)) {
        manager.Save();
    }
    if (manager.IsTorn(AcmFileStore::BACKUP)) {
        manager.Backup();
    }
}

// The default file keeps its own values, so a second manager loads it with the old encryption and saves it
// with the new one.
void ReencryptDefault(AppCfgMgr& manager, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) {
    const std::string defaultPath = manager.GetDefaultPath();
    if (defaultPath.empty()) {
        return;
    }
    ACM_LOG(ACM_INFO, "default file exist.need to update default file.");
    ACM_LOG(ACM_INFO, "update default file start...");
    if (manager.IsTorn(AcmFileStore::CFG) || manager.IsTorn(AcmFileStore::BACKUP)) {
        throw Poco::WriteFileException(manager.GetCfgPath());
    }
    const std::shared_ptr<AppCfgMgr> clone = manager.DeepClone(defaultPath);
    clone->SetCryptoMgr(cryptoMgr);
    clone->Save();
    if (clone->IsTorn(AcmFileStore::CFG)) {
        manager.NoteDefaultTorn();
    }
    // A default on read-only storage keeps its encryption; its log line says so. The other files are
    // rewritten.
    if (!IsForbidden(clone->OpenError(AcmFileStore::CFG))) {
        RequireWritten(*clone, AcmFileStore::CFG);
    }
    ACM_LOG(ACM_INFO, "default file update done.");
}

} // namespace

uint16_t ChangeEncryption(AppCfgMgr& manager, const AppCfgCryptoUpdateReq& request, int connFd) {
    ACM_LOG(ACM_INFO, "create new crypto mgr start...");
    std::shared_ptr<AppCfgCryptoMgr> cryptoMgr;
    if (request.cryptoType != ConfigCryptoType::NONE) {
        cryptoMgr = AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(request.cryptoType, manager.GetCfgPath(),
                                                                  request.cryptoParam);
        if (!cryptoMgr) {
            ACM_LOG(ACM_ERROR, "connect fd[%d] : invalid crypto type[%d] or param.", connFd,
                    static_cast<int>(request.cryptoType));
            return APP_CFG_STATUS_FORBIDDEN;
        }
    }
    ACM_LOG(ACM_INFO, "create new crypto mgr done.");
    MendCopies(manager);
    ReencryptDefault(manager, cryptoMgr);
    manager.SetCryptoMgr(cryptoMgr);
    ACM_LOG(ACM_INFO, "cfg file update start...");
    manager.Save();
    RequireWritten(manager, AcmFileStore::CFG);
    ACM_LOG(ACM_INFO, "cfg file update done.");
    ACM_LOG(ACM_INFO, "backup file update start...");
    manager.Backup();
    RequireWritten(manager, AcmFileStore::BACKUP);
    ACM_LOG(ACM_INFO, "backup file update done.");
    return APP_CFG_STATUS_OK;
}

} // namespace SystemServer
