// The end of a registered item: its strategies are stopped first, then changes that are not on disk yet are
// written, and then its manager is released.
#include "app_cfg_fault.h"
#include "app_cfg_instant_strategy.h"
#include "app_cfg_mgmt_server.h"

namespace SystemServer {

namespace {

void StopStrategy(const std::shared_ptr<AppCfgStrategy>& strategy) {
    if (strategy) {
        strategy->Stop();
    }
}

// When there is no thread for a worker, an instant strategy takes the place of the strategy: it needs no
// thread and acts on every change until the item is created again.
void StartStrategy(std::shared_ptr<AppCfgStrategy>& strategy, AppCfgMgr& manager,
                   AppCfgStrategy::AppCfgStrategyType type) {
    if (!strategy || Fence(LOG_FILE, __LINE__, [&] { strategy->Start(); })) {
        return;
    }
    Fence(LOG_FILE, __LINE__, [&] {
        auto instant = std::make_shared<AppCfgInstantStrategy>(manager, type);
        instant->Start();
        strategy = std::move(instant);
    });
}

} // namespace

// Two fences: a fault in one strategy must not keep the other from its last save.
void AppCfgMgmtServer::AppCfgMgmtItem::Stop() const {
    Fence(LOG_FILE, __LINE__, [this] { StopStrategy(saveStrategy); });
    Fence(LOG_FILE, __LINE__, [this] { StopStrategy(backupStrategy); });
}

void AppCfgMgmtServer::AppCfgMgmtItem::Start() {
    StartStrategy(saveStrategy, *appCfgMgr, AppCfgStrategy::SAVE);
    StartStrategy(backupStrategy, *appCfgMgr, AppCfgStrategy::BACKUP);
}

void AppCfgMgmtServer::AppCfgMgmtItem::CatchUp() const {
    appCfgMgr->CatchUp(saveStrategy != nullptr, backupStrategy != nullptr);
}

void AppCfgMgmtServer::AppCfgMgmtItem::End() const {
    Stop();
    Fence(LOG_FILE, __LINE__, [this] { CatchUp(); });
}

void AppCfgMgmtServer::AppCfgMgmtItem::GoOn() {
    Stop();
    Start();
    appCfgMgr->AnnounceChange();
}

void AppCfgMgmtServer::AppCfgMgmtItem::Abandon() const {
    if (appCfgMgr) {
        appCfgMgr->Abandon();
    }
    Stop();
}

} // namespace SystemServer
