// The service itself, on an event loop of this process.
#ifndef TESTS_CLIENT_SERVICE_THREAD_H
#define TESTS_CLIENT_SERVICE_THREAD_H

#include <stdexcept>
#include <thread>

#include "app_cfg_mgmt_server.h"
#include "app_cfg_wire.h"
#include "kestrel/kestrel.h"
#include "kestrel/kestrel_host.h"
#include "pl/pl_log_control.h"

namespace appcfg::test {

// Listens below KESTREL_ROOT from its construction on. One at a time: the service's registry is a static.
class ServiceThread {
public:
    ServiceThread() : m_loop(kestrel_event_mgr_new(0)) {
        pl_log_set_level(4);
        if (m_loop == nullptr || kestrel_server_register(SystemServer::APP_CFG_SERVICE_NAME, m_loop,
                                                         &SystemServer::AppCfgMgmtServer::m_serverOps) != 0) {
            throw std::runtime_error("the service cannot be registered");
        }
        m_thread = std::thread([this] { kestrel_event_mgr_run(m_loop, -1); });
    }
    ~ServiceThread() {
        kestrel_event_mgr_stop(m_loop);
        m_thread.join();
        kestrel_event_mgr_free(m_loop);
    }
    ServiceThread(const ServiceThread&) = delete;
    ServiceThread& operator=(const ServiceThread&) = delete;

private:
    kestrel_event_mgr* m_loop;
    std::thread m_thread;
};

} // namespace appcfg::test

#endif
