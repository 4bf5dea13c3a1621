#ifndef APP_CFG_DELAY_STRATEGY_H
#define APP_CFG_DELAY_STRATEGY_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "app_cfg_strategy.h"

namespace SystemServer {

// Acts once, three to four ticks after the last change of a burst, and once more when it is stopped.
// Threads: the change handler runs on the thread that raises the change, the action on a worker of its own.
class AppCfgDelayStrategy : public AppCfgStrategy {
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
    void EndWorker();
    void SaveThread();
    void AwaitWork();
    void CountDown();
    void Act();

    const uint32_t m_saveDelay = 3;                // ticks
    std::atomic<uint32_t> m_curRemainSaveDelay{0}; // ticks left before the action; 0 = none pending

    std::mutex m_mutex; // guards the worker's waits against the wake-ups; never held during an action
    std::condition_variable_any m_cv;
    std::shared_ptr<std::thread> m_thread; // set while started; Start and Stop come from one thread
    std::atomic<bool> m_running{false};
    bool m_lastActionBegun = false; // by the worker, once m_running was clear; read after the join
    const std::chrono::milliseconds m_tick;
};

} // namespace SystemServer

#endif
