#include "app_cfg_save_strategy_factory.h"

#include "app_cfg_instant_strategy.h"

namespace SystemServer {

std::shared_ptr<AppCfgStrategy> AppCfgSaveStrategyFactory::CreateAppCfgSaveStrategy(ConfigSaveStrategy kind,
                                                                                    AppCfgMgr& manager) {
    switch (kind) {
    case ConfigSaveStrategy::INSTANT:
        return std::make_shared<AppCfgInstantStrategy>(manager, AppCfgStrategy::SAVE);
    default:
        return nullptr;
    }
}

} // namespace SystemServer
