#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <list>

#include "support/scripted_peer.h"
#include "test_service.h"

namespace PlatformTest {

using std::filesystem::exists;
using ARegistration = AServer;
using ALoop = AServer;
using AnIoctl = AServer;

TEST_F(ARegistration, ReplacesADeadServerAndLeavesALiveOneAlone) {
    ::close(Listen(m_root.Of("test.orb"), 0));
    Runs();
    EXPECT_TRUE(TestClient().Asks(ECHO));
    kestrel_event_mgr* second = kestrel_event_mgr_new(0);
    static const kestrel_server_ops OPS = {[](kestrel_server*, void*) { return 0; }, nullptr};
    const auto isTaken = [&] { return kestrel_server_register("test.orb", second, &OPS) != 0; };
    EXPECT_TRUE(isTaken());
    EXPECT_TRUE(TestClient().Asks(ECHO));
    ::unlink(m_root.Of("test.orb").c_str());
    ::close(Listen(m_root.Of("test.orb"), 0)); // its lock decides, not what stands at its path
    EXPECT_TRUE(isTaken());
    EXPECT_EQ(Stops(), 0);
    EXPECT_TRUE(isTaken()) << "it may still save";
    kestrel_event_mgr_free(second);
    EXPECT_EQ(m_log.Count("taken by a running server"), 3U);
    EXPECT_TRUE(exists(m_root.Of("test.orb"))); // what is not its own
}

TEST_F(ARegistration, FailsAndLeavesEverythingAsItWas) {
    m_root.Writes("file.orb", "kept");
    for (const std::string& name : {std::string(), std::string("a/b"), std::string("../b"),
                                    std::string(120, 'n'), std::string("file.orb")}) {
        EXPECT_NE(Registers(name), 0) << name;
    }
    EXPECT_EQ(m_log.Count("too long"), 1U);
    EXPECT_EQ(m_root.Text("file.orb"), "kept");
    static const kestrel_server_ops FAILS = {[](kestrel_server*, void*) { return 3; }, nullptr};
    EXPECT_NE(kestrel_server_register("test.orb", m_mgr, &FAILS), 0);
    EXPECT_FALSE(exists(m_root.Of("test.orb")));
    EXPECT_EQ(Registers(), 0);
}

TEST_F(ARegistration, OpensTheSocketToAllWhateverTheUmask) {
    const mode_t former = ::umask(0077);
    EXPECT_EQ(Registers(), 0);
    ::umask(former);
    EXPECT_EQ(std::filesystem::status(m_root.Of("test.orb")).permissions(), std::filesystem::perms{0666});
}

TEST_F(ALoop, ClosesEveryConnectionAfterAcceptingHasStopped) {
    Runs();
    std::list<TestClient> clients(5);
    for (TestClient& client : clients) {
        ASSERT_TRUE(client.Asks(ECHO));
    }
    EXPECT_EQ(Stops(), 0);
    EXPECT_EQ(m_closed, 5);
    EXPECT_EQ(m_closedWhileListening, 0);
    EXPECT_TRUE(clients.front().MeetsEnd());
    EXPECT_FALSE(exists(m_root.Of("test.orb")));
}

TEST_F(ALoop, EndsWhenItsTimeRunsOutAndClosesAllWhenItIsFreed) {
    ASSERT_EQ(Registers(), 0);
    TestClient client;
    ASSERT_TRUE(client.Sends(Frame(ECHO)));
    EXPECT_EQ(RunsOnThisThread(20), 1);
    EXPECT_TRUE(client.Receives());
    EXPECT_EQ(RunsOnThisThread(0), 1);
    EXPECT_EQ(m_closed, 0);
    kestrel_event_mgr_free(std::exchange(m_mgr, nullptr));
    EXPECT_EQ(m_closed, 1);
    EXPECT_FALSE(exists(m_root.Of("test.orb")));
}

TEST_F(ALoop, StopsOnSignalsOnlyWhileItRuns) {
    const auto isCaught = [] {
        struct sigaction now {};
        return ::sigaction(SIGINT, nullptr, &now) == 0 && now.sa_handler != SIG_DFL;
    };
    EXPECT_FALSE(isCaught());
    std::thread sender([&] {
        EXPECT_TRUE(Eventually(isCaught));
        ::kill(::getpid(), SIGINT);
    });
    EXPECT_EQ(RunsOnThisThread(20'000), 0);
    sender.join();
    EXPECT_FALSE(isCaught());
}

TEST_F(AnIoctl, GivesFutureConnectionsTheirBuffersAndRefusesWhatItDoesNotKnow) {
    ASSERT_EQ(Registers(), 0);
    uint32_t send[3] = {0, 0, 0x8000};
    uint32_t receive[3] = {0, 0, 0x9000};
    uint32_t tooLarge[3] = {0, 0, 0x80000000};
    const TestClient file(::open("/dev/null", O_RDWR | O_CLOEXEC));
    const struct {
        int fd;
        unsigned long request;
        void* words;
        int error;
    } rows[] = {{m_fd, 0x400C0200, send, 0},           {m_fd, 0x400C0201, receive, 0},
                {m_fd, 0x5401, send, ENOTTY},          {file.Fd(), 0x80040305, send, ENOTTY},
                {file.Fd(), 0x400C0200, send, ENOTTY}, {-1, 0x80040305, send, EBADF},
                {m_fd, 0x80040305, nullptr, EFAULT},   {m_fd, 0x400C0200, tooLarge, EINVAL}};
    for (const auto& row : rows) {
        errno = 0;
        EXPECT_EQ(kestrel_ioctl(row.fd, row.request, row.words), row.error == 0 ? 0 : -1);
        EXPECT_EQ(errno, row.error) << row.fd << " " << row.request;
    }
    const TestClient client;
    EXPECT_EQ(RunsOnThisThread(20), 1);
    for (const auto& [option, asked] : {std::pair(SO_SNDBUF, 0x8000), std::pair(SO_RCVBUF, 0x9000)}) {
        int size = 0;
        socklen_t length = sizeof size;
        EXPECT_EQ(::getsockopt(m_fd, SOL_SOCKET, option, &size, &length), 0);
        EXPECT_EQ(size, 2 * asked); // the kernel counts its bookkeeping
    }
}

TEST(AnOpen, TellsWhyItFailed) {
    const RootDirectory root;
    ::close(Listen(root.Of("dead.orb"), 0));
    const std::pair<std::string, int> rows[] = {
        {"/mnt/kestrel/nobody.orb", ENOENT},
        {"/mnt/kestrel/" + std::string(200, 'n'), ENAMETOOLONG},
        {"/mnt/kestrel/dead.orb", ECONNREFUSED},
        {root.Of("dead.orb"), ECONNREFUSED}, // a path elsewhere is taken as it is
    };
    for (const auto& [path, error] : rows) {
        EXPECT_EQ(kestrel_open(path.c_str(), O_RDWR), -1);
        EXPECT_EQ(errno, error) << path;
    }
}

// A process that may open few descriptors. Client and server share them here.
class AShortage : public AServer {
protected:
    AShortage() {
        ::getrlimit(RLIMIT_NOFILE, &m_former);
        Runs();
        SetLimit(120);
        // Clients come until one of them is not accepted; that one is the last.
        while (!HasPaused() || m_opened == static_cast<int>(m_clients.size())) {
            m_clients.emplace_back();
            EXPECT_TRUE(m_clients.back().Sends(Frame(ECHO, "waiting")));
            const auto come = static_cast<int>(m_clients.size());
            EXPECT_TRUE(Eventually([&] { return m_opened == come || HasPaused(); }));
        }
    }
    ~AShortage() override { SetLimit(m_former.rlim_cur); }

    void SetLimit(rlim_t limit) const {
        const rlimit changed{limit, m_former.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &changed);
    }
    bool HasPaused() { return m_log.Count("accepting pauses") > 0; }

    rlimit m_former{};
    std::list<TestClient> m_clients;
};

TEST_F(AShortage, LeavesTheServiceSomeAndAcceptsAgainWhenThereAreMore) {
    std::list<TestClient> files;
    while (files.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC)).IsConnected()) {
    }
    EXPECT_GT(files.size(), 20U); // the reserve of this limit is 30; the clients here take from it too
    files.clear();
    const int accepted = m_opened;
    ASSERT_TRUE(m_clients.front().Receives());
    EXPECT_TRUE(m_clients.front().Asks(ECHO, "those inside are served"));
    m_clients.pop_front();
    EXPECT_TRUE(m_clients.back().Receives());
    EXPECT_EQ(m_opened, accepted + 1);
    EXPECT_EQ(m_log.Count("accepting pauses"), 1U);
    m_clients.emplace_back();
    EXPECT_TRUE(Eventually([this] { return m_log.Count("accepting pauses") == 2; }));
    SetLimit(m_former.rlim_cur); // descriptors may become free elsewhere, too
    EXPECT_TRUE(m_clients.back().Asks(ECHO));
    EXPECT_EQ(m_log.Count("accepting again"), 2U);
}

} // namespace PlatformTest
