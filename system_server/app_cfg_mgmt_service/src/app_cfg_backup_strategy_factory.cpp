#include "app_cfg_backup_strategy_factory.h"

#include "app_cfg_instant_strategy.h"

namespace SystemServer {

std::shared_ptr<AppCfgStrategy>
AppCfgBackupStrategyFactory::CreateAppCfgBackupStrategy(ConfigBackupStrategy kind, AppCfgMgr& manager) {
    switch (kind) {
    case ConfigBackupStrategy::INSTANT:
        return std::make_shared<AppCfgInstantStrategy>(manager, AppCfgStrategy::BACKUP);
    default:
        return nullptr;
    }
}

} // namespace SystemServer
