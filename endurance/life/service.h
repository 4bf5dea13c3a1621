// The service on an event loop of this process.
#ifndef LIFE_SERVICE_H
#define LIFE_SERVICE_H

#include <algorithm>
#include <thread>

#include "app_cfg_mgmt_server.h"
#include "app_cfg_wire.h"
#include "kestrel/kestrel_host.h"
#include "pl/pl_log_control.h"
#include "program.h"
#include "support/root_directory.h"

namespace Endurance {

// Owns a framework root, the loop and its thread; all end with it. Its log lines go nowhere, those of level 3
// are counted. One at a time: the root is told by the environment.
class Service {
public:
    Service() {
        pl_log_set_level(3);
        pl_log_set_sink(
            [](void*, int, int level, const char*, int, const char*) { s_errorLines += level >= 3 ? 1 : 0; },
            nullptr);
        Require(kestrel_server_register(SystemServer::APP_CFG_SERVICE_NAME, m_loop,
                                        &SystemServer::AppCfgMgmtServer::m_serverOps) == 0,
                "the service cannot be registered");
        m_thread = std::thread([this] { kestrel_event_mgr_run(m_loop, -1); });
    }
    ~Service() {
        kestrel_event_mgr_stop(m_loop);
        m_thread.join();
        kestrel_event_mgr_free(m_loop);
        pl_log_set_sink(nullptr, nullptr);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    const std::string& Root() const { return m_root.Path(); }
    static size_t ErrorLines() { return s_errorLines; }

    // Whether these items, and no other, are the registered ones before long.
    static bool ComesToHold(const std::vector<std::string>& items) {
        using Server = SystemServer::AppCfgMgmtServer;
        return Support::Eventually([&] {
            const std::lock_guard<std::mutex> lock(Server::m_itemMapMutex);
            const auto& registered = Server::m_appCfgMgmtItemMap;
            return std::equal(registered.begin(), registered.end(), items.begin(), items.end(),
                              [](const auto& entry, const std::string& key) { return entry.first == key; });
        });
    }

private:
    static inline std::atomic<size_t> s_errorLines{0};
    const Support::RootDirectory m_root{};
    kestrel_event_mgr* const m_loop = kestrel_event_mgr_new(0);
    std::thread m_thread{};
};

} // namespace Endurance

#endif
