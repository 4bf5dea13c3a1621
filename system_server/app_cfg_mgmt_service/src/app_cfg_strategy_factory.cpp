// The two factories: a kind means the same strategy for saving and for backing up.
#include "app_cfg_backup_strategy_factory.h"
#include "app_cfg_delay_strategy.h"
#include "app_cfg_instant_strategy.h"
#include "app_cfg_save_strategy_factory.h"
#include "app_cfg_timing_strategy.h"

namespace SystemServer {

namespace {

std::shared_ptr<AppCfgStrategy> CreateStrategy(ConfigStrategy kind, AppCfgMgr& manager,
                                               AppCfgStrategy::AppCfgStrategyType type) {
    switch (kind) {
    case ConfigStrategy::INSTANT:
        return std::make_shared<AppCfgInstantStrategy>(manager, type);
    case ConfigStrategy::DELAY:
        return std::make_shared<AppCfgDelayStrategy>(manager, type);
    case ConfigStrategy::TIMING:
        return std::make_shared<AppCfgTimingStrategy>(manager, type);
    default:
        return nullptr;
    }
}

} // namespace

std::shared_ptr<AppCfgStrategy> AppCfgSaveStrategyFactory::CreateAppCfgSaveStrategy(ConfigSaveStrategy kind,
                                                                                    AppCfgMgr& manager) {
    return CreateStrategy(kind, manager, AppCfgStrategy::SAVE);
}

std::shared_ptr<AppCfgStrategy>
AppCfgBackupStrategyFactory::CreateAppCfgBackupStrategy(ConfigBackupStrategy kind, AppCfgMgr& manager) {
    return CreateStrategy(kind, manager, AppCfgStrategy::BACKUP);
}

} // namespace SystemServer
