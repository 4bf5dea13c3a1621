#include "app_cfg_save_strategy_factory.h"

#include "app_cfg_delay_strategy.h"
#include "app_cfg_instant_strategy.h"
#include "app_cfg_timing_strategy.h"

namespace SystemServer {

std::shared_ptr<AppCfgStrategy> AppCfgSaveStrategyFactory::CreateAppCfgSaveStrategy(ConfigSaveStrategy kind,
                                                                                    AppCfgMgr& manager) {
    switch (kind) {
    case ConfigSaveStrategy::INSTANT:
        return std::make_shared<AppCfgInstantStrategy>(manager, AppCfgStrategy::SAVE);
    case ConfigSaveStrategy::DELAY:
        return std::make_shared<AppCfgDelayStrategy>(manager, AppCfgStrategy::SAVE);
    case ConfigSaveStrategy::TIMING:
        return std::make_shared<AppCfgTimingStrategy>(manager, AppCfgStrategy::SAVE);
    default:
        return nullptr;
    }
}

} // namespace SystemServer
