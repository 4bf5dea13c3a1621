#include "app_cfg_worker_strategy.h"

namespace SystemServer {

void AppCfgWorkerStrategy::StartWorker() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_running = true;
    m_waits = false;
    try {
        m_thread = std::make_shared<std::thread>([this] { SaveThread(); });
    } catch (...) {
        m_running = false;
        throw;
    }
    m_firstWait.wait(lock, [this] { return m_waits; });
}

void AppCfgWorkerStrategy::EndWorker() {
    m_running = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_cv.notify_one();
    }
    m_thread->join();
    m_thread.reset();
}

bool AppCfgWorkerStrategy::AwaitWakeUp(std::unique_lock<std::mutex>& lock, std::chrono::milliseconds time) {
    m_waits = true;
    m_firstWait.notify_one();
    return m_cv.wait_until(lock, std::chrono::steady_clock::now() + time) == std::cv_status::no_timeout;
}

} // namespace SystemServer
