#ifndef APP_CFG_STRATEGY_H
#define APP_CFG_STRATEGY_H

#include <atomic>
#include <cstdint>

#include "app_cfg_mgr.h"

namespace SystemServer {

// Decides when one item's document is saved, or its backup refreshed. Owned by the registry, which starts it
// when the item is ready and stops it before the item or its manager goes away.
// Threads: Start and Stop are called on the event thread; Execute on whatever thread the subclass uses.
class AppCfgStrategy {
public:
    // Any other value does nothing.
    enum AppCfgStrategyType : int32_t { SAVE = 0, BACKUP = 1 };

    // The manager is not owned and must outlive the strategy.
    AppCfgStrategy(AppCfgMgr& manager, AppCfgStrategyType type);
    AppCfgStrategy(const AppCfgStrategy&) = delete;
    AppCfgStrategy& operator=(const AppCfgStrategy&) = delete;
    virtual ~AppCfgStrategy();

    virtual void Start() = 0;
    // Does nothing for a strategy that is not running.
    virtual void Stop() = 0;

    // Stops, and acts here and now if an action is still owed. Throws when that fails; it stays owed.
    void End();

    // An action is owed after one that threw, and while a strategy should run and does not.
    void Owe() { m_isOwed = true; }
    bool IsOwed() const { return m_isOwed; }

    // Saves or backs up, by type. What the manager throws passes.
    void Execute();

protected:
    AppCfgMgr& m_manager;

private:
    const AppCfgStrategyType m_type;
    std::atomic<bool> m_isOwed{false};
};

} // namespace SystemServer

#endif
