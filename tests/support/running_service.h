// The service on an event loop of this process.
#ifndef TESTS_SUPPORT_RUNNING_SERVICE_H
#define TESTS_SUPPORT_RUNNING_SERVICE_H

#include <thread>
#include <vector>

#include "app_cfg_mgmt_server.h"
#include "app_cfg_wire.h"
#include "kestrel/kestrel_host.h"
#include "root_directory.h"

namespace Support {

// Owns the loop and its thread; both end with it. One at a time, since the environment tells its root, which
// outlives it.
class RunningService {
public:
    RunningService() {
        if (kestrel_server_register(SystemServer::APP_CFG_SERVICE_NAME, m_loop,
                                    &SystemServer::AppCfgMgmtServer::m_serverOps) != 0) {
            throw std::runtime_error("the service cannot be registered");
        }
        m_thread = std::thread([this] { kestrel_event_mgr_run(m_loop, -1); });
    }
    ~RunningService() {
        Stops();
        kestrel_event_mgr_free(m_loop);
    }
    RunningService(const RunningService&) = delete;
    RunningService& operator=(const RunningService&) = delete;

    // The loop ends as at SIGTERM, with a last save for every item.
    void Stops() {
        kestrel_event_mgr_stop(m_loop);
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    static std::vector<std::string> RegisteredKeys() {
        using Server = SystemServer::AppCfgMgmtServer;
        const std::lock_guard<std::mutex> lock(Server::m_itemMapMutex);
        std::vector<std::string> keys;
        for (const auto& entry : Server::m_appCfgMgmtItemMap) {
            keys.push_back(entry.first);
        }
        return keys;
    }
    // Whether these items, and no other, are the registered ones before long.
    static bool Knows(const std::vector<std::string>& keys) {
        return Eventually([&] { return RegisteredKeys() == keys; });
    }

private:
    kestrel_event_mgr* const m_loop = kestrel_event_mgr_new(0);
    std::thread m_thread{};
};

} // namespace Support

#endif
