#ifndef APP_CFG_SAVE_STRATEGY_FACTORY_H
#define APP_CFG_SAVE_STRATEGY_FACTORY_H

#include <memory>

#include "app_cfg_strategy.h"
#include "app_cfg_types.h"

namespace SystemServer {

// Makes the strategy that decides when an item's file is saved.
class AppCfgSaveStrategyFactory {
public:
    // Not started yet. Empty for a kind that means no strategy.
    static std::shared_ptr<AppCfgStrategy> CreateAppCfgSaveStrategy(ConfigSaveStrategy kind,
                                                                    AppCfgMgr& manager);
};

} // namespace SystemServer

#endif
