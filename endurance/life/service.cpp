#include "service.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <stdexcept>

#include "app_cfg_mgmt_server.h"
#include "app_cfg_wire.h"
#include "pl/pl_log_control.h"

namespace Endurance {

namespace {

using SystemServer::AppCfgMgmtServer;

std::atomic<size_t> g_errorLines{0};

void CountLine(void*, int, int level, const char*, int, const char*) {
    g_errorLines += level >= 3 ? 1 : 0;
}

kestrel_event_mgr* NewLoop() {
    pl_log_set_level(3);
    pl_log_set_sink(CountLine, nullptr);
    kestrel_event_mgr* const loop = kestrel_event_mgr_new(0);
    if (kestrel_server_register(SystemServer::APP_CFG_SERVICE_NAME, loop, &AppCfgMgmtServer::m_serverOps) !=
        0) {
        throw std::runtime_error("the service cannot be registered");
    }
    return loop;
}

} // namespace

Service::Service() : m_loop(NewLoop()), m_thread([this] { kestrel_event_mgr_run(m_loop, -1); }) {}

Service::~Service() {
    kestrel_event_mgr_stop(m_loop);
    m_thread.join();
    kestrel_event_mgr_free(m_loop);
    pl_log_set_sink(nullptr, nullptr);
}

size_t Service::ErrorLines() {
    return g_errorLines;
}

bool Service::ComesToHold(const std::vector<std::string>& items) {
    return Support::Eventually([&] {
        const std::lock_guard<std::mutex> lock(AppCfgMgmtServer::m_itemMapMutex);
        const auto& registered = AppCfgMgmtServer::m_appCfgMgmtItemMap;
        return std::equal(registered.begin(), registered.end(), items.begin(), items.end(),
                          [](const auto& entry, const std::string& key) { return entry.first == key; });
    });
}

} // namespace Endurance
