#include "service.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "app_cfg_mgmt_server.h"
#include "app_cfg_wire.h"
#include "pl/pl_log_control.h"

namespace Endurance {

namespace {

std::atomic<size_t> g_errorLines{0};

void CountLine(void*, int, int level, const char*, int, const char*) {
    g_errorLines += level >= 3 ? 1 : 0;
}

std::string NewRoot() {
    char path[] = "/tmp/kestrel-XXXXXX";
    if (::mkdtemp(path) == nullptr) {
        throw std::runtime_error("no directory for the service");
    }
    ::setenv("KESTREL_ROOT", path, 1);
    return path;
}

kestrel_event_mgr* NewLoop() {
    pl_log_set_level(3);
    pl_log_set_sink(CountLine, nullptr);
    kestrel_event_mgr* const loop = kestrel_event_mgr_new(0);
    if (kestrel_server_register(SystemServer::APP_CFG_SERVICE_NAME, loop,
                                &SystemServer::AppCfgMgmtServer::m_serverOps) != 0) {
        throw std::runtime_error("the service cannot be registered");
    }
    return loop;
}

} // namespace

Service::Service() :
    m_root(NewRoot()), m_loop(NewLoop()), m_thread([this] { kestrel_event_mgr_run(m_loop, -1); }) {}

Service::~Service() {
    kestrel_event_mgr_stop(m_loop);
    m_thread.join();
    kestrel_event_mgr_free(m_loop);
    pl_log_set_sink(nullptr, nullptr);
    std::filesystem::remove_all(m_root);
}

size_t Service::ErrorLines() {
    return g_errorLines;
}

} // namespace Endurance
