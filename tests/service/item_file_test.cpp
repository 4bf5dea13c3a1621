// Files that are not what an item expects, and machines that have no more to give.
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

#include "acm_cut_files.h"
#include "faults.h"
#include "service_fixture.h"

namespace ServiceTest {

using AHostilePath = AService;
using ASharedPath = AService;
using ACutCopy = AService;
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
    Writes("cfg", SETTINGS);
    const PathCase cases[] = {
        {Path("dir"), 400, 400, 400},
        {Path("fifo"), 400, 400, 400},
        {Path("link"), 400, 400, 400},
        {Path("storage.paas.orb"), 400, 400, 400},
        {"/dev/zero", 400, 200, 400},
        {"/dev/null", 400, 200, 400},
        {Path("cfg") + "/below", 400, 400, 200},
    };
    for (const PathCase& entry : cases) {
        SCOPED_TRACE(entry.path);
        AppCfgCreateReq item = Item("cfg", "", "");
        Put(item.cfgPath, entry.path);
        EXPECT_EQ(m_client.Creates(item), entry.asFile);
        item = Item("cfg", "", "");
        Put(item.backupPath, entry.path);
        EXPECT_EQ(m_client.Creates(item), entry.asBackup);
        item = Item("cfg", "", "");
        Put(item.defaultPath, entry.path);
        EXPECT_EQ(m_client.Creates(item), entry.asDefault);
    }
    AppCfgCreateReq recovered = Item("gone", "", "def");
    Put(recovered.backupPath, "/dev/zero");
    EXPECT_EQ(m_client.Creates(recovered), 400);
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
            const Failing failing(entry.call, entry.after);
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

// A save that finds no descriptor is told, and the next one makes up for it.
TEST_F(AShortage, DuringASaveIsMadeUpForByTheNext) {
    HasItem(SETTINGS);
    {
        const Failing failing(Call::OPEN);
        EXPECT_EQ(m_client.SetsRaw("a", "2"), 200);
    }
    EXPECT_EQ(m_log.Errors(), Lines{"3 open [cfg] fail."});
    EXPECT_EQ(Text("cfg"), SETTINGS);
    EXPECT_EQ(m_client.SetsRaw("a", "3"), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"3\"\n}");
}

TEST_F(AShortage, OfRoomLeavesEveryFileWhole) {
    Writes("def", R"({"a": "def"})");
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.SetsRaw("a", "2"), 200);
    const std::string saved = Text("cfg");
    {
        const Failing failing(Call::ROOM, 1000);
        EXPECT_EQ(m_client.SetsRaw("a", "3"), 200);
        EXPECT_EQ(m_client.Restores(), 200);
        EXPECT_EQ(m_client.Asks(APP_CFG_URI_CRYPTO_PARAM, APP_CFG_METHOD_SET, BytesOf(m_client.m_handle))
                      .header.status,
                  400);
    }
    EXPECT_EQ(m_log.Errors(),
              (Lines{"3 no room to write [cfg], which is left as it is.",
                     "3 no room to write [bak], which is left as it is.",
                     "3 File access error: No space left on device: cfg",
                     "3 no room to write [def], which is left as it is.", "3 Cannot write file: def"}));
    EXPECT_EQ(Text("cfg"), saved);
    EXPECT_EQ(Text("bak"), saved);
    EXPECT_EQ(Text("def"), R"({"a": "def"})");
    const Failing reservedAll(Call::FREE_BLOCKS, 1000);
    EXPECT_EQ(m_client.SetsRaw("a", "4"), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"4\"\n}");
    EXPECT_EQ(Text("bak"), Text("cfg"));
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

// The mark stays with the copy, and the file has shown that it takes writes.
TEST_F(ACutCopy, ThatIsGoneForGoodKeepsTheFileFromNoSave) {
    std::filesystem::create_directory(Path("far"));
    Writes("cfg", SETTINGS);
    ASSERT_EQ(m_client.Creates(Item("cfg", "far/bak")), 200);
    NoteCut(Path("far/bak"), true);
    std::filesystem::remove_all(Path("far"));
    EXPECT_EQ(m_client.SetsRaw("a", "2"), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"2\"\n}");
    EXPECT_EQ(m_log.Errors(), (Lines{"3 open [far/bak] fail.", "3 open [far/bak] fail."}));
    {
        const Failing failing(Call::OPEN, 1); // of the file that is to show it
        EXPECT_EQ(m_client.SetsRaw("a", "3"), 200);
        EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"2\"\n}");
    }
    {
        const Failing failing(Call::ROOM, 1000);
        EXPECT_EQ(m_client.SetsRaw("a", "longer"), 200);
        EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"2\"\n}");
        EXPECT_EQ(m_client.SetsRaw("a", ""), 200);
        EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"\"\n}");
    }
    EXPECT_EQ(m_client.SetsRaw("a", "longer"), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"longer\"\n}");
    {
        const LongestFile tight(16); // as long as the new text, and not as the old
        EXPECT_EQ(m_client.SetsRaw("a", "2"), 200);
        EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"longer\"\n}");
    }
    std::filesystem::remove(Path("cfg"));
    EXPECT_EQ(m_client.SetsRaw("a", "4"), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"4\"\n}");
    NoteCut(Path("far/bak"), false);
}

// A restore that cannot open the backup has not touched it.
TEST_F(ACutCopy, IsNoneThatCouldNotBeOpened) {
    Writes("def", R"({"a":"def"})");
    HasItem(SETTINGS);
    {
        const Failing failing(Call::OPEN, 3);
        EXPECT_EQ(m_client.Restores(), 200);
    }
    EXPECT_EQ(m_log.Errors(), Lines{"3 File access error: Too many open files: bak"});
    EXPECT_FALSE(IsCut(Path("bak")));
}

TEST_F(ACutCopy, IsAGoodDefaultAgainOnceItIsReplaced) {
    Writes("def", "{");
    HasItem(SETTINGS);
    NoteCut(Path("def"), true);
    EXPECT_EQ(m_client.Restores(), 200);
    EXPECT_EQ(Text("cfg"), SETTINGS);
    Writes("def", R"({"a":"def"})");
    EXPECT_EQ(m_client.Restores(), 200);
    EXPECT_EQ(m_client.Value("a"), "def");
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
