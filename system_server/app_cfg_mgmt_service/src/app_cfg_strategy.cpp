#include "app_cfg_strategy.h"

namespace SystemServer {

AppCfgStrategy::AppCfgStrategy(AppCfgMgr& manager, AppCfgStrategyType type) :
    m_manager(manager), m_type(type) {}

AppCfgStrategy::~AppCfgStrategy() = default;

void AppCfgStrategy::Execute() {
    if (m_type == SAVE) {
        m_manager.Save();
    } else if (m_type == BACKUP) {
        m_manager.Backup();
    }
}

} // namespace SystemServer
