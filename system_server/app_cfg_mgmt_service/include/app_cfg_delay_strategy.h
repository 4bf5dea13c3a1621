#ifndef APP_CFG_DELAY_STRATEGY_H
#define APP_CFG_DELAY_STRATEGY_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "app_cfg_worker_strategy.h"

namespace SystemServer {

// Acts once, three to four ticks after the last change of a burst, and once more when it is stopped.
// Threads: the change handler runs on the thread that raises the change, the action on the worker.
class AppCfgDelayStrategy : public AppCfgWorkerStrategy {
public:
    // The tick is one second; a test may shorten it.
    AppCfgDelayStrategy(AppCfgMgr& manager, AppCfgStrategyType type,
                        std::chrono::milliseconds tick = std::chrono::seconds(1));
    ~AppCfgDelayStrategy() override;

    void Start() override;
    // Returns after one last action, pending change or not; it does not wait for the countdown.
    void Stop() override;

    void OnConfigChangedEvent(const void* sender, const std::string& what);

private:
    void SaveThread() override;
    void AwaitWork();
    void CountDown();
    void Act();

    const uint32_t m_saveDelay = 3;                // ticks
    std::atomic<uint32_t> m_curRemainSaveDelay{0}; // ticks left before the action; 0 = none pending
    bool m_lastActionBegun = false; // the worker began one after m_running was cleared; read after the join
    const std::chrono::milliseconds m_tick;
};

} // namespace SystemServer

#endif
