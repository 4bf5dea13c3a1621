#ifndef APP_CFG_INSTANT_STRATEGY_H
#define APP_CFG_INSTANT_STRATEGY_H

#include <string>

#include "app_cfg_strategy.h"

namespace SystemServer {

// Acts on every change, on the thread that raises the change event. Has no thread of its own.
// Must be stopped before it is destroyed: the destructor leaves the subscription as it is.
class AppCfgInstantStrategy : public AppCfgStrategy {
public:
    using AppCfgStrategy::AppCfgStrategy;

    void Start() override;
    void Stop() override;

    void OnConfigChangedEvent(const void* sender, const std::string& what);
};

} // namespace SystemServer

#endif
