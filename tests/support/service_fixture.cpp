#include "service_fixture.h"

#include <stdexcept>

namespace ServiceTest {

namespace {

kestrel_event_mgr* NewService() {
    kestrel_event_mgr* const loop = kestrel_event_mgr_new(0);
    if (kestrel_server_register(APP_CFG_SERVICE_NAME, loop, &AppCfgMgmtServer::m_serverOps) != 0) {
        throw std::runtime_error("the service cannot be registered");
    }
    return loop;
}

} // namespace

AService::AService() : m_loop(NewService()), m_thread([this] { kestrel_event_mgr_run(m_loop, -1); }) {}

AService::~AService() {
    Stops();
    kestrel_event_mgr_free(m_loop);
    EXPECT_THAT(RegisteredKeys(), IsEmpty());
}

void AService::Stops() {
    kestrel_event_mgr_stop(m_loop);
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

AppCfgCreateReq AService::Item(const std::string& cfg, const std::string& backup,
                               const std::string& defaults) const {
    AppCfgCreateReq item{};
    item.hndl = m_client.m_handle;
    item.storageType = ConfigStorageType::JSON;
    item.saveStrategy = ConfigSaveStrategy::INSTANT;
    item.backupStrategy = ConfigBackupStrategy::INSTANT;
    Put(item.cfgPath, cfg.empty() ? cfg : Path(cfg));
    Put(item.backupPath, backup.empty() ? backup : Path(backup));
    Put(item.defaultPath, defaults.empty() ? defaults : Path(defaults));
    return item;
}

void AService::HasItem(const std::string& text) {
    Writes("cfg", text);
    ASSERT_EQ(m_client.Creates(Item()), 200);
    m_log.Clear();
}

Lines AService::RegisteredKeys() {
    const std::lock_guard<std::mutex> lock(AppCfgMgmtServer::m_itemMapMutex);
    Lines keys;
    for (const auto& entry : AppCfgMgmtServer::m_appCfgMgmtItemMap) {
        keys.push_back(entry.first);
    }
    return keys;
}

} // namespace ServiceTest
