#ifndef APP_CFG_TIMING_STRATEGY_H
#define APP_CFG_TIMING_STRATEGY_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "app_cfg_strategy.h"

namespace SystemServer {

// Acts once a period, whether or not anything changed, and once more when it is stopped.
// Threads: the action runs on a worker of its own.
class AppCfgTimingStrategy : public AppCfgStrategy {
public:
    // The period is a minute; a test may shorten it.
    AppCfgTimingStrategy(AppCfgMgr& manager, AppCfgStrategyType type,
                         std::chrono::seconds period = std::chrono::seconds(60));
    ~AppCfgTimingStrategy() override;

    // Returns when the worker waits: one that a Stop overtook would end without the last action.
    void Start() override;
    // May take a period: a worker that is about to wait does not hear it. Kept, and its last action with it.
    void Stop() override;

private:
    void SaveThread();

    const std::chrono::seconds m_savePeriod;
    std::shared_ptr<std::thread> m_thread; // set while started; Start and Stop come from one thread
    std::atomic<bool> m_running{false};
    std::mutex m_mutex; // guards the worker's wait; never held during an action
    std::condition_variable_any m_cv;
    bool m_waits{false}; // the worker has come to its first wait
    std::condition_variable m_firstWait;
};

} // namespace SystemServer

#endif
