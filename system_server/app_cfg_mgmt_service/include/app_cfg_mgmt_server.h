#ifndef APP_CFG_MGMT_SERVER_H
#define APP_CFG_MGMT_SERVER_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "acm_mutex.h"
#include "app_cfg_framework.h"
#include "app_cfg_mgr.h"
#include "app_cfg_reply.h"
#include "app_cfg_strategy.h"
#include "app_cfg_wire.h"

namespace SystemServer {

// The service's front end: start-up, dispatch of requests, the registry of items and the handlers.
// Static only. Threads: everything runs on the framework's event thread, one message at a time; the
// registry's lock is taken by each handler for its whole run, its reply included.
class AppCfgMgmtServer {
public:
    AppCfgMgmtServer() = delete;

    // One client's live item. Released in this order: backup strategy, save strategy, manager.
    struct AppCfgMgmtItem {
        int32_t connFd; // the connection that made the item; its close ends it
        std::shared_ptr<AppCfgMgr> appCfgMgr;
        std::shared_ptr<AppCfgStrategy> saveStrategy;
        std::shared_ptr<AppCfgStrategy> backupStrategy;

        // Stop and start the strategies. Faults are logged.
        void Stop() const;
        void Start();
        // After the strategies have stopped: writes the changes that are not on disk yet, unless the item has
        // no strategy for them. Throws when a text cannot be made; a write that fails is logged.
        void CatchUp() const;
        // Stops and catches up. Faults are logged.
        void End() const;
        // After an end that failed: the item stays, and its strategies are told once more of unsaved changes.
        void GoOn();
        // For an item that will not be registered: stops it and writes nothing.
        void Abandon() const;
    };
    using ItemMap = std::map<std::string, AppCfgMgmtItem>;

    // The peer of a connection.
    struct ConnectionInfo {
        int32_t pid = 0;
    };

    // Start-up and event loop. Returns the loop's result when it ends, or -1 when start-up failed.
    static int Run();
    // 0, or -1 with a log line when the process could not become that user with the service's capabilities.
    static int ChangeServerCapability(const std::string& userName);

    // The framework's callbacks. Nothing thrown leaves them.
    static int StartServer(kestrel_server* server, void* arg);
    static void CloseConnection(kestrel_connection* conn);
    static void ProcessMsg(tern_message* msg, kestrel_connection* conn);

    // The handlers. Each replies exactly once.
    static void CreateAppCfgItem(tern_message* msg, kestrel_connection* conn);
    static void DeleteAppCfgItem(tern_message* msg, kestrel_connection* conn);
    static void GetAppCfgData(tern_message* msg, kestrel_connection* conn);
    static void SetAppCfgData(tern_message* msg, kestrel_connection* conn);
    static void GetAppCfgRawData(tern_message* msg, kestrel_connection* conn);
    static void SetAppCfgRawData(tern_message* msg, kestrel_connection* conn);
    static void RestoreDefaultCfg(tern_message* msg, kestrel_connection* conn);
    static void UpdateCryptoParam(tern_message* msg, kestrel_connection* conn);

    // Points record at the message's content, which holds at least requiredLen bytes; no copy. 0, or -1.
    template <typename Record>
    static int GetParamFromContent(tern_message* msg, kestrel_connection* conn, Record** record,
                                   uint32_t requiredLen) {
        void* content = nullptr;
        if (FetchContent(msg, conn, &content, requiredLen) != 0) {
            return -1;
        }
        *record = static_cast<Record*>(content);
        return 0;
    }
    static int ReplyMsg(tern_message* msg, kestrel_connection* conn, const ReplyMsgInfo* info);

    // The registry's key of a handle: "owner.name.index". Two handles whose names hold points can have the
    // same key; they then mean the same item.
    static std::string GetAppCfgKey(const AppCfgHndl* hndl);

    static int GetConnectionInfo(kestrel_connection* conn, ConnectionInfo* info);
    // The path with its placeholders replaced; unknown ones stay as they are.
    static std::string ExpandPath(const std::string& path, ConnectionInfo* info);
    static std::string GetContainerRootPath(ConnectionInfo* info);
    static std::string GetDefaultSettingPath(ConnectionInfo* info);
    static std::string GetDefaultBackupPath(ConnectionInfo* info);

    // Copies the source over the configuration file and loads that; empty when there is no source or it
    // cannot be loaded either.
    static std::shared_ptr<AppCfgMgr>
    CreateAppCfgMgrByFile(ConfigStorageType storageType, const std::string& cfgPath,
                          const std::string& sourcePath, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr);

    static const std::string SERVICE_USERNAME;
    static const std::string DEFAULT_SETTING_PATH;
    static const std::string DEFAULT_BACKUP_PATH;
    static const std::string KESTREL_ROOT_DEFAULT;
    static const std::string APP_MGR_SERVICE;
    static const std::string CONTAINER_ROOT_PATH_KEY;
    static const std::string DEFAULT_SETTING_PATH_KEY;
    static const std::string DEFAULT_BACKUP_PATH_KEY;

    static const kestrel_server_ops m_serverOps;
    static const kestrel_connection_ops m_connectionOps;
    static const kestrel_protocol_ops m_protocolOps;

    // Guards the registry and every manager and strategy reached through it, and is held for a whole request.
    //
    // The order of all locks, outermost first:
    // 1. m_itemMapMutex; nothing inside a manager or strategy ever takes it.
    // 2. AppCfgMgr::m_notifyMutex, held while the change event is raised.
    // 3. m_saveMutex or m_backupMutex.
    // 4. m_documentMutex, while the text is made. It is released before the next one is waited for, and never
    //    held while an event is raised or a file is written.
    // 5. m_fileMutex. Only reloading takes it before m_documentMutex.
    // A strategy's own mutex guards only its worker's waits, and no other lock is taken under it.
    static AcmMutex m_itemMapMutex;
    static ItemMap m_appCfgMgmtItemMap ACM_GUARDED_BY(m_itemMapMutex);

private:
    using MsgHndl = std::function<void(tern_message*, kestrel_connection*)>;
    using PathVarFinder = std::function<std::string(ConnectionInfo*)>;

    static int FetchContent(tern_message* msg, kestrel_connection* conn, void** content,
                            uint32_t requiredLen);

    template <typename Body>
    static uint16_t Serve(tern_message* msg, kestrel_connection* conn, Body&& body);
    template <typename Record, typename Body>
    static uint16_t ServeItem(tern_message* msg, kestrel_connection* conn, uint32_t requiredLen, Body&& body,
                              uint16_t shortStatus = APP_CFG_STATUS_BAD_REQUEST);

    static void RemoveItemsOf(int32_t connFd) ACM_REQUIRES(m_itemMapMutex);
    static void RemoveAllItems();

    static constexpr unsigned METHODS_PER_URI = APP_CFG_METHOD_DELETE + 1; // method 0 counts as well
    static const std::array<MsgHndl, APP_CFG_URI_COUNT * METHODS_PER_URI> m_msgHndl;
    static const std::map<std::string, PathVarFinder> m_pathVarFinder;
};

} // namespace SystemServer

#endif
