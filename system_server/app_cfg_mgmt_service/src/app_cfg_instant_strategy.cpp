#include "app_cfg_instant_strategy.h"

namespace SystemServer {

AppCfgInstantStrategy::AppCfgInstantStrategy(AppCfgMgr& manager, AppCfgStrategyType type) :
    AppCfgStrategy(manager, type) {}

AppCfgInstantStrategy::~AppCfgInstantStrategy() = default;

void AppCfgInstantStrategy::Start() {
    m_manager.m_configChangedEvent += ChangeDelegate(this);
}

void AppCfgInstantStrategy::Stop() {
    m_manager.m_configChangedEvent -= ChangeDelegate(this);
}

void AppCfgInstantStrategy::OnConfigChangedEvent(const void*, const std::string&) {
    Execute();
}

} // namespace SystemServer
