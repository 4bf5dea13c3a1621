#include "app_cfg_worker_strategy.h"

namespace SystemServer {

void AppCfgWorkerStrategy::StartWorker() {
    const AcmLock lock(m_mutex);
    m_running = true;
    m_waits = false;
    try {
        m_thread = std::make_shared<AcmThread>([this] { SaveThread(); });
    } catch (...) {
        m_running = false;
        throw;
    }
    while (!m_waits) {
        m_firstWait.wait(m_mutex);
    }
}

void AppCfgWorkerStrategy::EndWorker() {
    m_running = false;
    {
        const AcmLock lock(m_mutex);
        m_cv.notify_one();
    }
    m_thread->join();
    m_thread.reset();
}

bool AppCfgWorkerStrategy::AwaitWakeUp(std::chrono::milliseconds time) {
    m_waits = true;
    m_firstWait.notify_one();
    return m_cv.wait_until(m_mutex, std::chrono::steady_clock::now() + time) == std::cv_status::no_timeout;
}

} // namespace SystemServer
