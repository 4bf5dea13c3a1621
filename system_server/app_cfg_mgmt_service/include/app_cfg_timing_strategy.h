#ifndef APP_CFG_TIMING_STRATEGY_H
#define APP_CFG_TIMING_STRATEGY_H

#include <chrono>

#include "app_cfg_worker_strategy.h"

namespace SystemServer {

// Acts once a period, whether or not anything changed, and once more when it is stopped.
// Threads: the action runs on the worker.
class AppCfgTimingStrategy : public AppCfgWorkerStrategy {
public:
    // The period is a minute; a test may shorten it.
    AppCfgTimingStrategy(AppCfgMgr& manager, AppCfgStrategyType type,
                         std::chrono::seconds period = std::chrono::seconds(60));
    ~AppCfgTimingStrategy() override;

    void Start() override;
    // May take a whole period: a worker that has tested m_running, but does not wait yet, does not hear the
    // wake-up. Kept; it acts once more after its wait.
    void Stop() override;

private:
    void SaveThread() override;

    const std::chrono::seconds m_savePeriod;
};

} // namespace SystemServer

#endif
