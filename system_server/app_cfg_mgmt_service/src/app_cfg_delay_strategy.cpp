#include "app_cfg_delay_strategy.h"

#include "app_cfg_fault.h"
#include "app_cfg_log.h"

namespace SystemServer {

static_assert(std::atomic<uint32_t>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

AppCfgDelayStrategy::AppCfgDelayStrategy(AppCfgMgr& manager, AppCfgStrategyType type,
                                         std::chrono::milliseconds tick) :
    AppCfgWorkerStrategy(manager, type),
    m_tick(tick) {}

AppCfgDelayStrategy::~AppCfgDelayStrategy() {
    Fence(LOG_FILE, __LINE__, [this] { Stop(); });
}

void AppCfgDelayStrategy::Start() {
    if (m_thread) {
        return;
    }
    m_manager.m_configChangedEvent += ChangeDelegate(this);
    m_lastActionBegun = false;
    try {
        StartWorker();
    } catch (...) {
        m_manager.m_configChangedEvent -= ChangeDelegate(this);
        m_curRemainSaveDelay = 0;
        throw;
    }
}

void AppCfgDelayStrategy::Stop() {
    if (!m_thread) {
        return;
    }
    m_manager.m_configChangedEvent -= ChangeDelegate(this);
    m_running = false; // before the count: a worker that saw only the count at 0 would act twice
    m_curRemainSaveDelay = 0;
    EndWorker();
    // A worker that was acting on an older change ends without a last action.
    if (!m_lastActionBegun) {
        Act();
    }
}

void AppCfgDelayStrategy::OnConfigChangedEvent(const void*, const std::string&) {
    if (m_curRemainSaveDelay == 0) {
        ACM_LOG(ACM_INFO, "------------> start delay save process...");
        m_curRemainSaveDelay = m_saveDelay;
        ACM_LOG(ACM_INFO, "------------> m_curRemainSaveDelay %u.", m_curRemainSaveDelay.load());
        const AcmLock lock(m_mutex);
        m_cv.notify_one();
        ACM_LOG(ACM_INFO, "OnConfigChangedEvent notify_one.\n");
    } else {
        m_curRemainSaveDelay = m_saveDelay;
        ACM_LOG(ACM_INFO, "------------> m_curRemainSaveDelay %u.", m_curRemainSaveDelay.load());
    }
}

void AppCfgDelayStrategy::SaveThread() {
    while (m_running) {
        AwaitWork();
        CountDown();
        Act();
    }
}

// Waits in turns of one tick: the wake-up of a change that came between a countdown and this wait was not
// heard, but its count is found at the end of the turn.
void AppCfgDelayStrategy::AwaitWork() {
    const AcmLock lock(m_mutex);
    while (m_running) {
        if (AwaitWakeUp(m_tick) || m_curRemainSaveDelay != 0) {
            return;
        }
    }
}

void AppCfgDelayStrategy::CountDown() {
    uint32_t remain = m_curRemainSaveDelay;
    while (remain != 0) {
        // Not a plain decrement: Stop may store 0 at any time, and the count would go below it.
        if (!m_curRemainSaveDelay.compare_exchange_weak(remain, remain - 1)) {
            continue;
        }
        {
            const AcmLock lock(m_mutex);
            m_cv.wait_until(m_mutex, std::chrono::steady_clock::now() + m_tick,
                            [this] { return !m_running; });
        }
        remain = m_curRemainSaveDelay;
        ACM_LOG(ACM_INFO, "[save thread]------------> m_curRemainSaveDelay %u.", remain);
    }
}

void AppCfgDelayStrategy::Act() {
    m_lastActionBegun = !m_running;
    Fence(LOG_FILE, __LINE__, [this] { Execute(); });
}

} // namespace SystemServer
