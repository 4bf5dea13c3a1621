#include "app_cfg_timing_strategy.h"

#include "app_cfg_fault.h"

namespace SystemServer {

AppCfgTimingStrategy::AppCfgTimingStrategy(AppCfgMgr& manager, AppCfgStrategyType type,
                                           std::chrono::seconds period) :
    AppCfgStrategy(manager, type),
    m_savePeriod(period) {}

AppCfgTimingStrategy::~AppCfgTimingStrategy() {
    if (m_running) {
        Fence(LOG_FILE, __LINE__, [this] { Stop(); });
    }
}

void AppCfgTimingStrategy::Start() {
    if (m_thread) {
        return;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_running = true;
    m_waits = false;
    try {
        m_thread = std::make_shared<std::thread>(&AppCfgTimingStrategy::SaveThread, this);
    } catch (...) {
        m_running = false;
        throw;
    }
    m_firstWait.wait(lock, [this] { return m_waits; });
}

void AppCfgTimingStrategy::Stop() {
    if (!m_thread) {
        return;
    }
    m_running = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_cv.notify_one();
    }
    m_thread->join();
    m_thread.reset();
}

void AppCfgTimingStrategy::SaveThread() {
    while (m_running) {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_waits = true;
            m_firstWait.notify_one();
            m_cv.wait_until(lock, std::chrono::steady_clock::now() + m_savePeriod);
        }
        Fence(LOG_FILE, __LINE__, [this] { Execute(); });
    }
}

} // namespace SystemServer
