#include <Poco/Delegate.h>
#include <Poco/Exception.h>

#include <atomic>
#include <csignal>
#include <future>
#include <sys/resource.h>
#include <sys/stat.h>

#include "app_cfg_backup_strategy_factory.h"
#include "app_cfg_crypto_mgr_factory.h"
#include "app_cfg_json_mgr.h"
#include "app_cfg_mgr_factory.h"
#include "app_cfg_save_strategy_factory.h"
#include "app_cfg_xml_mgr.h"
#include "service_fixture.h"

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
        if (std::exchange(m_throws, false)) {
            throw std::runtime_error("a handler fails");
        }
        if (m_count == 1 && m_holds) {
            m_entered.set_value();
            m_released.get_future().wait();
        }
    }

    std::atomic<int> m_count{0};
    bool m_holds = false;
    bool m_throws = false; // once
    std::promise<void> m_entered;
    std::promise<void> m_released;

private:
    AppCfgMgr& m_manager;
};

// A manager without the service around it.
class AManager : public ADirectory {
protected:
    std::shared_ptr<AppCfgMgr> Opens(const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr = nullptr) const {
        return std::make_shared<AppCfgJsonMgr>(Writes("cfg", SETTINGS), cryptoMgr);
    }
};

using AFile = AManager;
using AStrategy = AManager;
using AFactory = AManager;

TEST_F(AManager, RaisesOneEventForASetAndNoneForARefusal) {
    const auto manager = Opens();
    Listener listener(*manager);
    EXPECT_EQ(manager->SetData("a|2,missing|1"), -1);
    manager->RaisePendingChange();
    EXPECT_EQ(listener.m_count, 0);
    for (const char* query : {"a|2", "", ",,"}) {
        listener.m_count = 0;
        EXPECT_EQ(manager->SetData(query), 0);
        manager->RaisePendingChange();
        EXPECT_EQ(listener.m_count, 1) << query;
    }
}

// Nothing is announced before the notification thread waits, so nothing is lost.
TEST_F(AManager, HearsASetRightAfterItsConstruction) {
    for (int i = 0; i < 300; ++i) {
        const auto manager = Opens();
        Listener listener(*manager);
        manager->SetData("a|2");
        manager->RaisePendingChange();
        ASSERT_EQ(listener.m_count, 1);
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
    manager->RaisePendingChange();
    EXPECT_EQ(listener.m_count, 2);
}

TEST_F(AManager, RaisesAChangeAgainWhoseHandlerFailed) {
    const auto manager = Opens();
    Listener listener(*manager);
    listener.m_throws = true;
    manager->SetData("a|2");
    manager->RaisePendingChange();
    manager->RaisePendingChange();
    EXPECT_EQ(listener.m_count, 2);
    EXPECT_EQ(m_log.Errors(), Lines{"3 a handler fails"});
}

TEST_F(AManager, RaisesARawSetOnTheCallersThread) {
    const auto manager = Opens();
    Listener listener(*manager);
    EXPECT_EQ(manager->SetRawData("", "junk"), -1);
    EXPECT_EQ(listener.m_count, 0);
    EXPECT_EQ(manager->SetRawData("a", "2"), 0);
    EXPECT_EQ(listener.m_count, 1);
}

TEST_F(AManager, AppendsValuesUntilAKeyIsMissing) {
    const auto manager = Opens();
    std::vector<std::string> values{"kept"};
    EXPECT_THROW(manager->GetData("a,missing", values), Poco::NotFoundException);
    EXPECT_EQ(values, (Lines{"kept", "1"}));
}

TEST_F(AManager, ClonesOntoAnotherFileWithItsOwnEncryption) {
    const AppCfgCryptoParam param{};
    const auto cryptoMgr =
        AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(ConfigCryptoType::AES_256_CBC, Path("cfg"), param);
    const auto manager = Opens(cryptoMgr);
    manager->SetRawData("a", "unsaved");
    const auto clone = manager->DeepClone(Writes("other", R"({"a":"other"})"));
    std::vector<std::string> values;
    clone->GetData("a", values);
    EXPECT_EQ(values, Lines{"other"});
    ASSERT_NE(clone->GetCryptoMgr(), nullptr);
    EXPECT_NE(clone->GetCryptoMgr(), cryptoMgr);
    EXPECT_EQ(clone->GetCryptoMgr()->m_filePath, Path("other"));
    EXPECT_EQ(cryptoMgr->m_filePath, Path("cfg"));
    EXPECT_EQ(Opens()->DeepClone(Path("other"))->GetCryptoMgr(), nullptr);
}

// A manager that has no document of its class and cannot serialise what it has.
template <typename Document, typename Faults>
class AppCfgStrayMgr : public AppCfgDocumentMgr<Document, Faults> {
public:
    using AppCfgDocumentMgr<Document, Faults>::AppCfgDocumentMgr;
    using AppCfgDocumentMgr<Document, Faults>::Save;
    void Save(std::ostream& out) override { out.setstate(std::ios::badbit); }
    std::shared_ptr<AppCfgMgr> DeepClone(const std::string&) override { return nullptr; }
};

TEST_F(AManager, WithoutADocumentRefusesEverything) {
    AppCfgStrayMgr<AcmJsonConfiguration, AppCfgJsonMgrFaults> manager(Writes("cfg", SETTINGS), nullptr);
    AppCfgStrayMgr<AcmXmlConfiguration, AppCfgXmlMgrFaults> ofXml(Path("cfg"), nullptr);
    std::string text;
    std::vector<std::string> values;
    EXPECT_EQ(manager.GetRawData("a", text), -1);
    EXPECT_EQ(manager.SetRawData("a", "1"), -1);
    manager.Restore();
    EXPECT_EQ(ofXml.GetRawData("a", text), -1);
    Lines lines(3, "3 dynamic_cast AcmJsonConfiguration fail.");
    lines.push_back("3 dynamic_cast AcmXmlConfiguration fail.");
    EXPECT_EQ(m_log.Errors(), lines);
    EXPECT_THROW(manager.GetData("a", values), Poco::NullPointerException);
    EXPECT_THROW(manager.SetData("a|1"), Poco::NullPointerException);
    EXPECT_EQ(manager.GetData("", values), 0);
}

TEST_F(AManager, ThatCannotSerialiseLeavesItsFileAlone) {
    AppCfgStrayMgr<AcmJsonConfiguration, AppCfgJsonMgrFaults> manager(Writes("cfg", SETTINGS), nullptr);
    EXPECT_THROW(static_cast<AppCfgMgr&>(manager).Save(), Poco::OutOfMemoryException);
    EXPECT_EQ(m_log.Errors(), Lines{"3 serialise [cfg] fail. [cfg] is left as it is."});
    EXPECT_EQ(Text("cfg"), SETTINGS);
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
    AppCfgMgr::SyncSaveToPath("text", "/dev/null"); // takes the bytes, cannot be synced
    rlimit former{};
    getrlimit(RLIMIT_FSIZE, &former);
    const rlimit tight{10, former.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &tight);
    AppCfgMgr::SyncSaveToPath("more than fits", Path("cut"));
    setrlimit(RLIMIT_FSIZE, &former);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(Text("cut"), "more than ");
    EXPECT_THAT(m_log.Of(), ElementsAre("3 open [nowhere/file] fail.", "3 open [] fail.",
                                        "3 write [/dev/full] fail.required wr len[4] actual wr len[-1].",
                                        "3 fsync [/dev/null] fail.",
                                        "3 write [cut] fail.required wr len[14] actual wr len[10]."));
}

TEST_F(AFile, HasABackupOfTheNewestValues) {
    const auto manager = Opens();
    manager->Backup();
    EXPECT_THAT(m_log.Of({"backup"}, 0),
                ElementsAre("0 backup [cfg] to []...", "0 backup [cfg] to [] done."));
    m_log.Clear();
    manager->SetBackupPath(Path("bak"));
    manager->SetRawData("a", "2");
    manager->Backup();
    EXPECT_EQ(Text("bak"), "{\n  \"a\": \"2\"\n}");
    EXPECT_EQ(Text("cfg"), SETTINGS);
    manager->Save();
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"2\"\n}");
    EXPECT_THAT(m_log.Of({}, 0), ElementsAre("0 backup [cfg] to [bak]...", "0 backup [cfg] to [bak] done.",
                                             "0 save [cfg]...", "0 save [cfg] done."));
}

TEST_F(AFile, IsReplacedByACopyThatExists) {
    Writes("src", "source");
    Writes("dst", "destination");
    AppCfgMgr::Replace("", Path("dst"));
    AppCfgMgr::Replace(Path("gone"), Path("dst"));
    EXPECT_EQ(Text("dst"), "destination");
    AppCfgMgr::Replace(Path("src"), Path("dst"));
    EXPECT_EQ(Text("dst"), "source");
    EXPECT_THROW(AppCfgMgr::Replace(Path("src"), Path("nowhere/dst")), Poco::FileException);
    EXPECT_THAT(m_log.Of(),
                ElementsAre("1 default[gone] not exists.", "1 copy default[src] to cfg[dst] done."));
}

TEST_F(AStrategy, SavesOnEveryChangeUntilItIsStopped) {
    const auto manager = Opens();
    const auto strategy =
        AppCfgSaveStrategyFactory::CreateAppCfgSaveStrategy(ConfigSaveStrategy::INSTANT, *manager);
    manager->SetRawData("a", "before"); // lost: nothing is replayed
    strategy->Start();
    EXPECT_EQ(Text("cfg"), SETTINGS);
    manager->SetRawData("a", "2");
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"2\"\n}");
    manager->SetRawData("a", "3");
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"3\"\n}");
    strategy->Stop();
    strategy->Stop(); // no harm
    manager->SetRawData("a", "4");
    EXPECT_EQ(m_log.Count("save [cfg] done."), 2U);
    EXPECT_EQ(m_log.Count("backup"), 0U);
}

TEST_F(AStrategy, OfABackupNeverSaves) {
    const auto manager = Opens();
    manager->SetBackupPath(Path("bak"));
    const auto strategy =
        AppCfgBackupStrategyFactory::CreateAppCfgBackupStrategy(ConfigBackupStrategy::INSTANT, *manager);
    strategy->Start();
    manager->SetRawData("a", "2");
    strategy->Stop();
    EXPECT_EQ(Text("cfg"), SETTINGS);
    EXPECT_EQ(Text("bak"), "{\n  \"a\": \"2\"\n}");
}

TEST_F(AFactory, GivesNothingForWhatCannotBeLoaded) {
    for (const int32_t type : {2, 4, -1}) {
        EXPECT_EQ(
            AppCfgMgrFactory::CreateAppCfgMgr(static_cast<ConfigStorageType>(type), Path("cfg"), nullptr),
            nullptr);
    }
    EXPECT_THAT(m_log.Of(), IsEmpty());
    for (const char* text : {"7", "null", "{} {}"}) {
        m_log.Clear();
        EXPECT_EQ(AppCfgMgrFactory::CreateAppCfgMgr(ConfigStorageType::JSON, Writes("cfg", text), nullptr),
                  nullptr);
        EXPECT_EQ(m_log.Errors().size(), 1U) << text;
    }
    EXPECT_EQ(AppCfgMgrFactory::CreateAppCfgMgr(ConfigStorageType::JSON, Path("gone"), nullptr), nullptr);
    EXPECT_THAT(m_log.Errors(), ::testing::Contains(HasSubstr("gone")));
}

} // namespace ServiceTest
