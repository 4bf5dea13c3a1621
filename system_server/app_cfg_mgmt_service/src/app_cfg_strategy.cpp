#include "app_cfg_strategy.h"

namespace SystemServer {

AppCfgStrategy::AppCfgStrategy(AppCfgMgr& manager, AppCfgStrategyType type) :
    m_manager(manager), m_type(type) {}

AppCfgStrategy::~AppCfgStrategy() = default;

void AppCfgStrategy::End() {
    Stop();
    if (m_isOwed) {
        Execute();
    }
}

// Cleared before the action, so that one that goes well does not hide another beside it that fails.
void AppCfgStrategy::Execute() {
    m_isOwed = false;
    try {
        if (m_type == SAVE) {
            m_manager.Save();
        } else if (m_type == BACKUP) {
            m_manager.Backup();
        }
    } catch (...) {
        m_isOwed = true;
        throw;
    }
}

} // namespace SystemServer
