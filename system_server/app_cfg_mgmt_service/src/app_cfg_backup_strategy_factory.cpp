#include "app_cfg_backup_strategy_factory.h"

#include "app_cfg_delay_strategy.h"
#include "app_cfg_instant_strategy.h"
#include "app_cfg_timing_strategy.h"

namespace SystemServer {

std::shared_ptr<AppCfgStrategy>
AppCfgBackupStrategyFactory::CreateAppCfgBackupStrategy(ConfigBackupStrategy kind, AppCfgMgr& manager) {
    switch (kind) {
    case ConfigBackupStrategy::INSTANT:
        return std::make_shared<AppCfgInstantStrategy>(manager, AppCfgStrategy::BACKUP);
    case ConfigBackupStrategy::DELAY:
        return std::make_shared<AppCfgDelayStrategy>(manager, AppCfgStrategy::BACKUP);
    case ConfigBackupStrategy::TIMING:
        return std::make_shared<AppCfgTimingStrategy>(manager, AppCfgStrategy::BACKUP);
    default:
        return nullptr;
    }
}

} // namespace SystemServer
