// Files that are not what an item expects, and machines that have no more to give.
#include <csignal>
#include <functional>
#include <sys/resource.h>
#include <sys/stat.h>

#include "support/service_calls.h"
#include "support/service_fixture.h"

namespace ServiceTest {

using AFile = ADirectory;
using AHostilePath = AService;
using ASharedPath = AService;
using ATornCopy = AService;
using AShortage = AService;

constexpr char SETTINGS[] = R"({"a":"1"})";

// While it lives, no file can be written beyond so many bytes.
class LongestFile {
public:
    explicit LongestFile(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_former);
        const rlimit tight{bytes, m_former.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tight);
    }
    ~LongestFile() {
        setrlimit(RLIMIT_FSIZE, &m_former);
        std::signal(SIGXFSZ, m_handler);
    }
    LongestFile(const LongestFile&) = delete;
    LongestFile& operator=(const LongestFile&) = delete;

private:
    void (*const m_handler)(int);
    rlimit m_former{};
};

TEST_F(AFile, ThatCannotBeWrittenIsOnlyTold) {
    const LongestFile tight(10);
    for (const std::string& path : {Path("nowhere/file"), Path(""), std::string("/dev/full"), Path("cut")}) {
        AppCfgMgr::SyncSaveToPath("more than fits", path);
    }
    EXPECT_EQ(Text("cut"), "more than ");
    EXPECT_EQ(m_log.Errors().size(), 4U);
}

struct PathCase {
    std::string path;
    uint16_t asFile; // the answer when the configuration path is this
    uint16_t asBackup;
    uint16_t asDefault;
};

// None of them may hang the service: every answer comes within the client's deadline.
TEST_F(AHostilePath, IsNeverReadAndOnlyADeviceIsWritten) {
    std::filesystem::create_directory(Path("dir"));
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    std::filesystem::create_symlink(Path("fifo"), Path("link"));
    std::filesystem::create_symlink("loop", Path("loop"));
    Writes("cfg", SETTINGS);
    const PathCase cases[] = {
        {Path("dir"), 400, 400, 400},
        {Path("fifo"), 400, 400, 400},
        {Path("link"), 400, 400, 400},
        {Path("storage.paas.orb"), 400, 400, 400},
        {"/dev/zero", 400, 200, 400},
        {"/dev/null", 400, 200, 400},
        {Path("cfg") + "/below", 400, 400, 200},
        {Path("loop"), 400, 200, 200},
    };
    const auto creates = [&](auto AppCfgCreateReq::*field, const char* cfg, const std::string& path) {
        AppCfgCreateReq item = Item(cfg, "", "");
        Put(item.*field, path);
        return m_client.Creates(item);
    };
    for (const PathCase& entry : cases) {
        SCOPED_TRACE(entry.path);
        EXPECT_EQ(creates(&AppCfgCreateReq::cfgPath, "cfg", entry.path), entry.asFile);
        EXPECT_EQ(creates(&AppCfgCreateReq::backupPath, "cfg", entry.path), entry.asBackup);
        EXPECT_EQ(creates(&AppCfgCreateReq::defaultPath, "cfg", entry.path), entry.asDefault);
    }
    EXPECT_EQ(creates(&AppCfgCreateReq::backupPath, "gone", "/dev/zero"), 400);
    EXPECT_EQ(Text("gone"), "(missing)");
    EXPECT_EQ(Text("cfg"), SETTINGS);
}

// ".." behind a link leads elsewhere than its text says; what is checked must be what is opened.
TEST_F(AHostilePath, IsFollowedAsTheSystemDoes) {
    std::filesystem::create_directories(Path("far/away"));
    std::filesystem::create_symlink(Path("far/away"), Path("link"));
    ASSERT_EQ(mkfifo(Path("bak").c_str(), 0600), 0);
    Writes("cfg", SETTINGS);
    EXPECT_EQ(m_client.Creates(Item("cfg", "link/../bak")), 200);
    EXPECT_EQ(Text("far/bak"), SETTINGS);
}

// A path can turn into something else after the item was made.
TEST_F(AHostilePath, ThatAppearsLaterStallsNoSaveAndNoRestore) {
    HasItem(SETTINGS);
    std::filesystem::remove(Path("bak"));
    ASSERT_EQ(mkfifo(Path("bak").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo(Path("def").c_str(), 0600), 0);
    EXPECT_EQ(m_client.SetsRaw("a", "2"), 200);
    EXPECT_EQ(m_client.Restores(), 200);
    EXPECT_THAT(m_log.Errors(), ElementsAre("3 open [bak] fail.", HasSubstr("def")));
    EXPECT_EQ(m_client.Value("a"), "2");
}

TEST_F(ASharedPath, AsFileBackupAndDefaultIsNotEmptied) {
    Writes("cfg", SETTINGS);
    std::filesystem::create_hard_link(Path("cfg"), Path("twin"));
    std::filesystem::create_symlink("cfg", Path("link"));
    for (const char* other : {"cfg", "twin", "link"}) {
        EXPECT_EQ(m_client.Creates(Item("cfg", other, other)), 200);
        EXPECT_EQ(m_client.Restores(), 200);
        EXPECT_EQ(Text("cfg"), SETTINGS);
        EXPECT_EQ(m_client.Value("a"), "1");
    }
    EXPECT_EQ(m_client.Creates(Item("cfg", "cfg", "")), 200);
    EXPECT_EQ(m_client.Rekeys(""), 200);
    Writes("cfg", "broken");
    EXPECT_EQ(m_client.Creates(Item("cfg", "cfg", "twin")), 403);
    EXPECT_EQ(Text("cfg"), "broken");
}

struct Shortage {
    const char* claim;
    const char* cfg;
    Call call;
    int after;
};

// Says nothing about the files: none is recovered, none is touched, and later the item can be made.
TEST_F(AShortage, StartsNoRecovery) {
    const Shortage shortages[] = {
        {"no descriptor to load the file", "cfg", Call::OPEN, 0},
        {"no descriptor to read the backup", "gone", Call::OPEN, 0},
        {"no descriptor for the recovered file", "gone", Call::OPEN, 1},
        {"no notification thread", "cfg", Call::THREAD, 0},
        {"no thread for the save strategy", "cfg", Call::THREAD, 1},
        {"no thread for the backup strategy", "cfg", Call::THREAD, 2},
    };
    Writes("cfg", SETTINGS);
    Writes("bak", R"({"a":"bak"})");
    for (const Shortage& entry : shortages) {
        SCOPED_TRACE(entry.claim);
        AppCfgCreateReq item = Item(entry.cfg);
        item.saveStrategy = ConfigSaveStrategy::DELAY;
        item.backupStrategy = ConfigBackupStrategy::DELAY;
        m_log.Clear();
        {
            const Injection injection({entry.call, entry.after + 1, false, EMFILE});
            EXPECT_EQ(m_client.Creates(item), 400);
        }
        EXPECT_EQ(m_log.Errors().size(), 1U);
        EXPECT_THAT(m_log.Of({"done.", "fail."}), ::testing::Not(::testing::Contains(HasSubstr("restore"))));
        EXPECT_EQ(Text("cfg"), SETTINGS);
        EXPECT_EQ(Text("bak"), R"({"a":"bak"})");
        EXPECT_EQ(Text("gone"), "(missing)");
        EXPECT_THAT(RegisteredKeys(), IsEmpty());
    }
    EXPECT_EQ(m_client.Creates(Item()), 200);
    EXPECT_EQ(m_client.Value("a"), "1");
}

TEST_F(AShortage, OfRoomLeavesEveryFileWhole) {
    Writes("def", R"({"a": "def"})");
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.SetsRaw("a", "2"), 200);
    const std::string saved = Text("cfg");
    {
        const Injection injection({Call::ROOM, 1, true, ENOSPC});
        EXPECT_EQ(m_client.SetsRaw("a", "3"), 200);
        EXPECT_EQ(m_client.Restores(), 200);
        EXPECT_EQ(m_client.Rekeys(""), 400);
    }
    EXPECT_EQ(
        m_log.Errors(),
        (Lines{"3 no room to write [cfg], which is left as it is.",
               "3 no room to write [bak], which is left as it is.",
               "3 connect fd[N] : appCfgKey[app1.net.0] File access error: No space left on device: cfg",
               "3 no room to write [cfg], which is left as it is.",
               "3 connect fd[N] : appCfgKey[app1.net.0] Cannot write file: cfg"}));
    EXPECT_EQ(Text("cfg"), saved);
    EXPECT_EQ(Text("bak"), saved);
    EXPECT_EQ(Text("def"), R"({"a": "def"})");
    const Injection reservedAll({Call::FREE_BLOCKS, 1, true, 0});
    EXPECT_EQ(m_client.SetsRaw("a", "4"), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"4\"\n}");
    EXPECT_EQ(Text("bak"), Text("cfg"));
}

TEST_F(AShortage, OfAWayToSyncKeepsNothingFromBeingSaved) {
    HasItem(SETTINGS);
    const Injection injection({Call::FSYNC, 1, true, EINVAL});
    EXPECT_EQ(m_client.SetsRaw("a", "2"), 200);
    EXPECT_EQ(m_log.Errors(), (Lines{"3 fsync [cfg] fail.", "3 fsync [bak] fail."}));
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"2\"\n}");
    EXPECT_EQ(Text("bak"), Text("cfg"));
}

// A file that comes to be is as good when its directory cannot be synced.
TEST_F(AShortage, OfAWayToSyncADirectoryIsOnlyTold) {
    Writes("bak", SETTINGS);
    const Injection injection({Call::FSYNC, 2, false, EIO});
    EXPECT_EQ(m_client.Creates(Item()), 200);
    EXPECT_EQ(m_log.Errors().size(), 1U);
    EXPECT_EQ(Text("cfg"), SETTINGS);
}

TEST_F(AShortage, OfLengthForFilesLeavesThemWhole) {
    HasItem(SETTINGS);
    const LongestFile tight(100);
    EXPECT_EQ(m_client.SetsRaw("a", std::string(1000, 'x')), 200);
    EXPECT_EQ(Text("cfg"), SETTINGS);
    EXPECT_EQ(m_client.SetsRaw("a", "2"), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"2\"\n}");
    const LongestFile tighter(5);
    AppCfgCreateReq item = Item("cfg", "", "");
    Put(item.backupPath, "/dev/null"); // has no length
    EXPECT_EQ(m_client.Creates(item), 200);
    EXPECT_EQ(m_client.Deletes(), 200);
}

constexpr char NEWER[] = "{\n  \"a\": \"2\"\n}";

// What a crash in the write of a backup leaves: the file must not be cut while it is.
TEST_F(ATornCopy, IsWrittenFirst) {
    Writes("cfg", SETTINGS);
    Writes("bak", "{");
    AppCfgCreateReq item = Item();
    item.backupStrategy = ConfigBackupStrategy::TIMING; // does not write by itself
    ASSERT_EQ(m_client.Creates(item), 200);
    EXPECT_EQ(m_log.Of({"written first"}),
              Lines{"1 connect fd[N] : backup[bak] cannot be loaded and is written first."});
    EXPECT_EQ(m_client.SetsRaw("a", "2"), 200);
    EXPECT_EQ(Text("bak"), NEWER);
    EXPECT_EQ(Text("cfg"), NEWER);
}

struct TornCase {
    const char* claim;
    std::function<void()> spoil;
    const char* cfg; // after a set
};

// Whatever could tear the other copy as well keeps its hands from the last one.
TEST_F(ATornCopy, ThatStaysTornKeepsTheLastOneAsItIs) {
    std::unique_ptr<Injection> injection;
    const TornCase cases[] = {
        {"the torn one cannot be opened", [&] { std::filesystem::remove_all(Path("far")); }, NEWER},
        {"there is no room for it",
         [&] {
             injection = std::make_unique<Injection>(FaultTest::Fault{Call::ROOM, 1, true, ENOSPC});
         },
         SETTINGS},
        {"it tears again",
         [&] {
             injection = std::make_unique<Injection>(FaultTest::Fault{Call::FSYNC, 1, true, EIO});
         },
         SETTINGS},
    };
    for (const TornCase& entry : cases) {
        SCOPED_TRACE(entry.claim);
        std::filesystem::create_directory(Path("far"));
        Writes("cfg", SETTINGS);
        Writes("far/bak", "{");
        ASSERT_EQ(m_client.Creates(Item("cfg", "far/bak")), 200);
        entry.spoil();
        EXPECT_EQ(m_client.SetsRaw("a", "2"), 200);
        EXPECT_EQ(Text("cfg"), entry.cfg);
        injection.reset();
        EXPECT_EQ(m_client.Deletes(), 200);
        EXPECT_EQ(Text("cfg"), NEWER) << "what is behind is written at the end";
        m_log.Clear();
    }
}

// The copy that recovers a missing file is not made; what the link names goes again, the link stays.
TEST_F(AShortage, OfRoomForARecoveryLeavesNoPart) {
    Writes("bak", SETTINGS);
    std::filesystem::create_symlink(Path("target"), Path("cfg"));
    {
        const LongestFile tight(5);
        EXPECT_EQ(m_client.Creates(Item()), 400);
    }
    EXPECT_EQ(Text("target"), "(missing)");
    EXPECT_TRUE(std::filesystem::is_symlink(Path("cfg")));
    EXPECT_EQ(m_client.Creates(Item()), 200);
}

} // namespace ServiceTest
