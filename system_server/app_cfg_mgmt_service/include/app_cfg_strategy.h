#ifndef APP_CFG_STRATEGY_H
#define APP_CFG_STRATEGY_H

#include <Poco/Delegate.h>

#include <cstdint>
#include <string>

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

    // Saves or backs up, by type. What the manager throws passes.
    void Execute();

protected:
    // What a strategy subscribes with to its manager's changes, and unsubscribes.
    template <typename Strategy>
    static Poco::Delegate<Strategy, const std::string> ChangeDelegate(Strategy* strategy) {
        return Poco::delegate(strategy, &Strategy::OnConfigChangedEvent);
    }

    AppCfgMgr& m_manager;

private:
    const AppCfgStrategyType m_type;
};

} // namespace SystemServer

#endif
