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
    // May take a period: a worker that is about to wait does not hear it. Kept, and its last action with it.
    void Stop() override;

private:
    void SaveThread() override;

    const std::chrono::seconds m_savePeriod;
};

} // namespace SystemServer

#endif
