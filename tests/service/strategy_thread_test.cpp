#include <Poco/Delegate.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>

#include "app_cfg_backup_strategy_factory.h"
#include "app_cfg_delay_strategy.h"
#include "app_cfg_instant_strategy.h"
#include "app_cfg_save_strategy_factory.h"
#include "app_cfg_timing_strategy.h"
#include "support/service_fixture.h"

namespace ServiceTest {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

// A manager without a document that counts what its strategies do.
class CountingMgr final : public AppCfgMgr {
public:
    CountingMgr() : AppCfgMgr("counted", nullptr) {}

    void Save() override {
        ++m_saves;
        m_onSave();
    }
    void Backup() override { ++m_backups; }

    int32_t GetData(const std::string&, Lines&) const override { return 0; }
    int32_t SetData(const std::string&) override { return 0; }
    int32_t SetRawData(const std::string&, const std::string&) override { return 0; }
    int32_t GetRawData(const std::string&, std::string&) override { return 0; }
    bool IsConfigWritable() override { return true; }
    void Restore() override {}
    void Save(std::ostream&) override {}
    std::shared_ptr<AppCfgMgr> DeepClone(const std::string&) override { return nullptr; }

    void Changes() { m_configChangedEvent(this, m_cfgPath); }
    bool Saved(int times) {
        return Eventually([&] { return m_saves == times; });
    }

    std::atomic<int> m_saves{0};
    std::atomic<int> m_backups{0};
    std::function<void()> m_onSave = [] {};
};

void ExpectSender(const void* sender, const std::string& path) {
    EXPECT_EQ(path, static_cast<const AppCfgMgr*>(sender)->GetCfgPath());
}

// Nothing is announced before the notification thread waits, so nothing is lost.
TEST(AnAnnouncement, IsHeardRightAfterTheConstruction) {
    for (int i = 0; i < 300; ++i) {
        CountingMgr mgr;
        mgr.m_configChangedEvent += Poco::delegate(&ExpectSender);
        AppCfgInstantStrategy strategy(mgr, AppCfgStrategy::SAVE);
        strategy.Start();
        mgr.AnnounceChange();
        ASSERT_TRUE(mgr.Saved(1));
        strategy.Stop();
        strategy.Stop(); // no harm
    }
}

TEST(AnAnnouncement, IsHeardThatComesWhileHandlersRun) {
    CountingMgr mgr;
    std::atomic<bool> goesOn{false};
    mgr.m_onSave = [&] { EXPECT_TRUE(Eventually([&] { return goesOn.load(); })); };
    AppCfgInstantStrategy strategy(mgr, AppCfgStrategy::SAVE);
    strategy.Start();
    mgr.AnnounceChange();
    ASSERT_TRUE(mgr.Saved(1));
    std::thread second([&] { mgr.AnnounceChange(); });
    goesOn = true;
    second.join();
    EXPECT_TRUE(mgr.Saved(2));
    strategy.Stop();
}

class ADelayedSave : public ::testing::Test {
protected:
    // Ticks that nobody lives to see, for cases in which only Stop may end the wait.
    static constexpr milliseconds FOREVER = hours(1);

    CountingMgr m_mgr;
    LogLines m_log{"/"};
};

TEST_F(ADelayedSave, RunsOnceAfterABurst) {
    AppCfgDelayStrategy strategy(m_mgr, AppCfgStrategy::SAVE, milliseconds(300));
    strategy.Start();
    for (int change = 0; change < 1000; ++change) {
        m_mgr.Changes();
    }
    EXPECT_EQ(m_mgr.m_saves, 0);
    EXPECT_TRUE(m_mgr.Saved(1));
    strategy.Stop();
    EXPECT_EQ(m_mgr.m_saves, 2);
}

TEST_F(ADelayedSave, IsNotAwaitedByStop) {
    AppCfgDelayStrategy strategy(m_mgr, AppCfgStrategy::SAVE, FOREVER);
    strategy.Start();
    m_mgr.Changes();
    strategy.Stop();
    EXPECT_EQ(m_mgr.m_saves, 1);
    m_mgr.Changes();
    strategy.Stop();
    EXPECT_EQ(m_mgr.m_saves, 1);
}

TEST_F(ADelayedSave, FollowsForAChangeDuringAnother) {
    AppCfgDelayStrategy strategy(m_mgr, AppCfgStrategy::SAVE, milliseconds(5));
    std::atomic<bool> goesOn{false};
    m_mgr.m_onSave = [&] { EXPECT_TRUE(Eventually([&] { return goesOn.load(); })); };
    strategy.Start();
    m_mgr.Changes();
    ASSERT_TRUE(m_mgr.Saved(1));
    m_mgr.Changes();
    goesOn = true;
    EXPECT_TRUE(m_mgr.Saved(2));
    strategy.Stop();
}

TEST_F(ADelayedSave, OutlivesOneThatThrew) {
    AppCfgDelayStrategy strategy(m_mgr, AppCfgStrategy::SAVE, milliseconds(5));
    m_mgr.m_onSave = [&] {
        if (m_mgr.m_saves == 1) {
            throw std::runtime_error("disk on fire");
        }
    };
    strategy.Start();
    m_mgr.Changes();
    ASSERT_TRUE(m_mgr.Saved(1));
    m_mgr.Changes();
    EXPECT_TRUE(m_mgr.Saved(2));
    strategy.Stop();
    EXPECT_THAT(m_log.Errors(), ElementsAre("3 disk on fire"));
}

TEST_F(ADelayedSave, IsMadeByTheDestructorOfAStartedStrategyAlone) {
    { const AppCfgDelayStrategy neverStarted(m_mgr, AppCfgStrategy::SAVE, FOREVER); }
    EXPECT_EQ(m_mgr.m_saves, 0);
    {
        AppCfgDelayStrategy strategy(m_mgr, AppCfgStrategy::SAVE, FOREVER);
        strategy.Start();
    }
    EXPECT_EQ(m_mgr.m_saves, 1);
}

TEST(ATimedSave, RunsEveryPeriodWithoutChanges) {
    CountingMgr mgr;
    {
        AppCfgTimingStrategy strategy(mgr, AppCfgStrategy::SAVE, seconds(1));
        strategy.Start();
        EXPECT_TRUE(Eventually([&] { return mgr.m_saves >= 2; }));
    }
    const int saves = mgr.m_saves;
    EXPECT_GE(saves, 2);
    AppCfgTimingStrategy neverStarted(mgr, AppCfgStrategy::SAVE, seconds(1));
    neverStarted.Stop();
    EXPECT_EQ(mgr.m_saves, saves);
}

TEST(ASaveOfItsOwnThread, IsMadeByEveryStopHoweverSoonItComes) {
    CountingMgr mgr;
    AppCfgDelayStrategy delay(mgr, AppCfgStrategy::SAVE, hours(1));
    AppCfgTimingStrategy timing(mgr, AppCfgStrategy::SAVE);
    for (int round = 1; round <= 2000; ++round) {
        for (AppCfgStrategy* const strategy :
             {static_cast<AppCfgStrategy*>(&delay), static_cast<AppCfgStrategy*>(&timing)}) {
            const int before = mgr.m_saves;
            strategy->Start();
            if (round % 2 == 0) {
                mgr.Changes();
            }
            strategy->Stop();
            ASSERT_GT(mgr.m_saves, before) << round;
        }
    }
}

TEST(TheStrategyFactories, TellKindsApart) {
    CountingMgr mgr;
    const auto save = [&](int kind) {
        return AppCfgSaveStrategyFactory::CreateAppCfgSaveStrategy(static_cast<ConfigSaveStrategy>(kind),
                                                                   mgr);
    };
    const auto backup = [&](int kind) {
        return AppCfgBackupStrategyFactory::CreateAppCfgBackupStrategy(
            static_cast<ConfigBackupStrategy>(kind), mgr);
    };
    for (const int kind : {-1, 0, 4}) {
        EXPECT_FALSE(save(kind) || backup(kind)) << kind;
    }
    for (const int kind : {1, 2, 3}) {
        save(kind)->Execute();
        EXPECT_EQ(mgr.m_saves, kind);
        backup(kind)->Execute();
        EXPECT_EQ(mgr.m_backups, kind);
    }
    EXPECT_TRUE(dynamic_cast<AppCfgDelayStrategy*>(backup(2).get()));
    EXPECT_TRUE(dynamic_cast<AppCfgTimingStrategy*>(save(3).get()));
    AppCfgDelayStrategy(mgr, static_cast<AppCfgStrategy::AppCfgStrategyType>(2)).Execute();
    EXPECT_EQ(mgr.m_saves + mgr.m_backups, 6);
}

} // namespace ServiceTest
