#include <Poco/Delegate.h>
#include <Poco/Exception.h>

#include <atomic>
#include <csignal>
#include <future>
#include <sys/resource.h>
#include <sys/stat.h>

#include "app_cfg_backup_strategy_factory.h"
#include "app_cfg_json_mgr.h"
#include "app_cfg_save_strategy_factory.h"
#include "support/service_fixture.h"

namespace ServiceTest {

constexpr char SETTINGS[] = R"({"a":"1"})";

// Counts a manager's change events; the first can be held until the test lets go.
class Listener {
public:
    explicit Listener(AppCfgMgr& manager) : m_manager(manager) {
        m_manager.m_configChangedEvent += Poco::delegate(this, &Listener::OnChange);
    }
    // NOLINTNEXTLINE(bugprone-exception-escape): a fault here may end the test.
    ~Listener() { m_manager.m_configChangedEvent -= Poco::delegate(this, &Listener::OnChange); }

    void OnChange(const void* sender, const std::string& path) {
        EXPECT_EQ(sender, &m_manager);
        EXPECT_EQ(path, m_manager.GetCfgPath());
        ++m_count;
        if (m_count == 1 && m_holds) {
            m_entered.set_value();
            m_released.get_future().wait();
        }
    }

    std::atomic<int> m_count{0};
    bool m_holds = false;
    std::promise<void> m_entered;
    std::promise<void> m_released;

private:
    AppCfgMgr& m_manager;
};

// A manager without the service around it.
class AManager : public ADirectory {
protected:
    std::shared_ptr<AppCfgMgr> Opens() const {
        return std::make_shared<AppCfgJsonMgr>(Writes("cfg", SETTINGS), nullptr);
    }
};

using AFile = AManager;
using AStrategy = AManager;

// Nothing is announced before the notification thread waits, so nothing is lost.
TEST_F(AManager, HearsASetRightAfterItsConstruction) {
    for (int i = 0; i < 300; ++i) {
        const auto manager = Opens();
        Listener listener(*manager);
        manager->SetData("a|2");
        ASSERT_TRUE(Eventually([&] { return listener.m_count == 1; }));
    }
}

TEST_F(AManager, HearsASetThatComesWhileHandlersRun) {
    const auto manager = Opens();
    Listener listener(*manager);
    listener.m_holds = true;
    manager->SetData("a|2");
    listener.m_entered.get_future().wait();
    std::thread setter([&] { manager->SetData("a|3"); });
    listener.m_released.set_value();
    setter.join();
    EXPECT_TRUE(Eventually([&] { return listener.m_count == 2; }));
}

TEST_F(AFile, IsWrittenInPlaceWithItsModeKept) {
    const std::string path = Path("new");
    AppCfgMgr::SyncSaveToPath("longer text", path);
    EXPECT_EQ(Text("new"), "longer text");
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    const ino_t inode = status.st_ino;
    AppCfgMgr::SyncSaveToPath("short", path);
    EXPECT_EQ(Text("new"), "short");
    AppCfgMgr::SyncSaveToPath("", path);
    EXPECT_EQ(Text("new"), "");
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
    EXPECT_EQ(status.st_ino, inode);
    EXPECT_THAT(m_log.Of(), IsEmpty());
}

TEST_F(AFile, ThatCannotBeWrittenIsOnlyTold) {
    AppCfgMgr::SyncSaveToPath("text", Path("nowhere/file"));
    AppCfgMgr::SyncSaveToPath("text", Path(""));
    AppCfgMgr::SyncSaveToPath("text", "/dev/full");
    rlimit former{};
    getrlimit(RLIMIT_FSIZE, &former);
    const rlimit tight{10, former.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &tight);
    AppCfgMgr::SyncSaveToPath("more than fits", Path("cut"));
    setrlimit(RLIMIT_FSIZE, &former);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(Text("cut"), "more than ");
    EXPECT_EQ(m_log.Errors().size(), 4U);
}

TEST_F(AStrategy, WritesItsFileOnEveryChangeUntilItIsStopped) {
    const auto manager = Opens();
    manager->SetBackupPath(Path("bak"));
    const auto save =
        AppCfgSaveStrategyFactory::CreateAppCfgSaveStrategy(ConfigSaveStrategy::INSTANT, *manager);
    const auto backup =
        AppCfgBackupStrategyFactory::CreateAppCfgBackupStrategy(ConfigBackupStrategy::INSTANT, *manager);
    manager->SetRawData("a", "before"); // lost: nothing is replayed
    save->Start();
    EXPECT_EQ(Text("cfg"), SETTINGS);
    manager->SetRawData("a", "2");
    EXPECT_EQ(Text("cfg") + Text("bak"), "{\n  \"a\": \"2\"\n}(missing)");
    save->Stop();
    save->Stop(); // no harm
    backup->Start();
    manager->SetRawData("a", "3");
    backup->Stop();
    EXPECT_EQ(Text("cfg") + Text("bak"), "{\n  \"a\": \"2\"\n}{\n  \"a\": \"3\"\n}");
}

} // namespace ServiceTest
