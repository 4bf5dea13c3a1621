#include "app_cfg_instant_strategy.h"

namespace SystemServer {

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
