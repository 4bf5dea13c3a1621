#ifndef APP_CFG_WORKER_STRATEGY_H
#define APP_CFG_WORKER_STRATEGY_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>

#include "acm_mutex.h"
#include "acm_thread.h"
#include "app_cfg_strategy.h"

namespace SystemServer {

// What the strategies that act on a worker thread of their own share: starting, waking and joining it.
// A subclass ends its worker in its own destructor.
class AppCfgWorkerStrategy : public AppCfgStrategy {
protected:
    using AppCfgStrategy::AppCfgStrategy;

    // The worker's first function. It ends soon after m_running was cleared.
    virtual void SaveThread() = 0;

    // Returns when the worker waits: one that a Stop overtook would end without the last action. Throws when
    // there is no thread to be had.
    void StartWorker();
    // Wakes the worker and joins it.
    void EndWorker();

    // For the worker: waits on m_cv, once; false when the time has passed.
    bool AwaitWakeUp(std::chrono::milliseconds time) ACM_REQUIRES(m_mutex);

    std::shared_ptr<AcmThread> m_thread; // set while started; Start and Stop come from one thread
    std::atomic<bool> m_running{false};
    AcmMutex m_mutex; // guards the worker's waits against the wake-ups; never held during an action
    std::condition_variable_any m_cv;

private:
    bool m_waits ACM_GUARDED_BY(m_mutex) = false; // the worker has come to its first wait
    std::condition_variable_any m_firstWait;
};

} // namespace SystemServer

#endif
