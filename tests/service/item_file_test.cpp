// Files that are not what an item expects, and machines that have no more to give.
#include <dlfcn.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>

#include "service_fixture.h"

namespace {

std::atomic<bool> g_refuseThreads{false};

} // namespace

// Stands before the C library's for the whole process, the C++ library included.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                              void* argument) {
    if (g_refuseThreads) {
        return EAGAIN;
    }
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const Create next = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return next(thread, attributes, run, argument);
}

namespace ServiceTest {

using AHostilePath = AService;
using ASharedPath = AService;

constexpr char SETTINGS[] = R"({"a":"1"})";

class AShortage : public AService {
protected:
    AShortage() {
        Writes("cfg", SETTINGS);
        Writes("bak", R"({"a":"bak"})");
        Writes("def", R"({"a":"def"})");
    }
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

TEST_F(AShortage, OfDescriptorsStartsNoRecovery) {
    EXPECT_EQ(m_client.Value("a"), "status 404"); // the connection has its descriptor
    m_log.Clear();
    rlimit former{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &former), 0);
    const rlimit none{3, former.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const uint16_t status = m_client.Creates(Item());
    const uint16_t ofCopy = m_client.Creates(Item("gone"));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &former), 0);
    EXPECT_EQ(status, 400);
    EXPECT_EQ(ofCopy, 400);
    EXPECT_EQ(m_log.Errors().size(), 2U);
    EXPECT_EQ(Text("cfg"), SETTINGS);
    EXPECT_EQ(Text("bak"), R"({"a":"bak"})");
    EXPECT_EQ(Text("gone"), "(missing)");
    EXPECT_EQ(m_client.Creates(Item()), 200);
    EXPECT_EQ(m_client.Value("a"), "1");
}

TEST_F(AShortage, OfThreadsStartsNoRecovery) {
    g_refuseThreads = true;
    EXPECT_EQ(m_client.Creates(Item()), 400);
    g_refuseThreads = false;
    EXPECT_EQ(m_log.Errors().size(), 1U);
    EXPECT_EQ(Text("cfg"), SETTINGS);
    EXPECT_EQ(Text("bak"), R"({"a":"bak"})");
    EXPECT_EQ(m_client.Creates(Item()), 200);
    EXPECT_EQ(m_client.Value("a"), "1");
}

} // namespace ServiceTest
