#include "app_cfg_timing_strategy.h"

#include "app_cfg_fault.h"

namespace SystemServer {

AppCfgTimingStrategy::AppCfgTimingStrategy(AppCfgMgr& manager, AppCfgStrategyType type,
                                           std::chrono::seconds period) :
    AppCfgWorkerStrategy(manager, type),
    m_savePeriod(period) {}

AppCfgTimingStrategy::~AppCfgTimingStrategy() {
    Fence(LOG_FILE, __LINE__, [this] { Stop(); });
}

void AppCfgTimingStrategy::Start() {
    if (!m_thread) {
        StartWorker();
    }
}

void AppCfgTimingStrategy::Stop() {
    if (m_thread) {
        EndWorker();
    }
}

void AppCfgTimingStrategy::SaveThread() {
    while (m_running) {
        {
            const AcmLock lock(m_mutex);
            AwaitWakeUp(m_savePeriod);
        }
        Fence(LOG_FILE, __LINE__, [this] { Execute(); });
    }
}

} // namespace SystemServer
