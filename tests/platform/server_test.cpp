#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include "support/scripted_peer.h"
#include "test_service.h"

namespace PlatformTest {

namespace {

bool Exists(const std::string& path) {
    return std::filesystem::exists(path);
}

} // namespace

using ARegistration = AServer;
using ALoop = AServer;
using AnIoctl = AServer;

TEST_F(ARegistration, ReplacesTheSocketOfADeadServer) {
    ::close(Listen(m_root.Of("test.orb"), 0));
    Runs();
    EXPECT_TRUE(TestClient().Asks(ECHO));
}

TEST_F(ARegistration, LeavesALiveServerAlone) {
    Runs();
    kestrel_event_mgr* second = kestrel_event_mgr_new(0);
    static const kestrel_server_ops OPS = {[](kestrel_server*, void*) { return 0; }, nullptr};
    EXPECT_NE(kestrel_server_register("test.orb", second, &OPS), 0);
    EXPECT_TRUE(TestClient().Asks(ECHO));
    ::unlink(m_root.Of("test.orb").c_str());
    ::close(Listen(m_root.Of("test.orb"), 0)); // its lock decides, not what stands at its path
    EXPECT_NE(kestrel_server_register("test.orb", second, &OPS), 0);
    EXPECT_EQ(Stops(), 0);
    EXPECT_NE(kestrel_server_register("test.orb", second, &OPS), 0) << "it may still save";
    kestrel_event_mgr_free(second);
    EXPECT_EQ(m_log.Count("taken by a running server"), 3U);
    EXPECT_TRUE(Exists(m_root.Of("test.orb"))); // what is not its own
}

TEST_F(ARegistration, LeavesAFileThatIsNoSocketAlone) {
    m_root.Writes("test.orb", "kept");
    EXPECT_NE(Registers(), 0);
    EXPECT_EQ(m_root.Text("test.orb"), "kept");
}

TEST_F(ARegistration, FailsAndLeavesNothingWhenTheServiceDoesNotStart) {
    m_startResult = 3;
    EXPECT_NE(Registers(), 0);
    EXPECT_FALSE(Exists(m_root.Of("test.orb")));
    m_startResult = 0;
    EXPECT_EQ(Registers(), 0);
}

TEST_F(ARegistration, RefusesNamesThatMakeNoSocketInItsRoot) {
    for (const std::string& name :
         {std::string(), std::string("a/b"), std::string("../b"), std::string(120, 'n')}) {
        EXPECT_NE(Registers(name), 0) << name;
    }
    EXPECT_EQ(m_log.Count("too long"), 1U);
}

TEST_F(ARegistration, GivesTheSocketItsModeWhateverTheUmask) {
    const mode_t former = ::umask(0077);
    EXPECT_EQ(Registers("open.orb"), 0);
    kestrel_socket_access(0640, ::getgid());
    EXPECT_EQ(Registers("narrow.orb"), 0);
    kestrel_socket_access(0666, static_cast<gid_t>(-1));
    ::umask(former);
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(m_root.Of("open.orb")).permissions(), perms{0666});
    EXPECT_EQ(std::filesystem::status(m_root.Of("narrow.orb")).permissions(), perms{0640});
}

TEST_F(ALoop, ClosesEveryConnectionAfterAcceptingHasStopped) {
    Runs();
    std::vector<TestClient> clients(5);
    for (TestClient& client : clients) {
        ASSERT_TRUE(client.Asks(ECHO));
    }
    EXPECT_EQ(Stops(), 0);
    EXPECT_EQ(m_closed, 5);
    EXPECT_EQ(m_closedWhileListening, 0);
    EXPECT_EQ(m_closedWithoutDescriptor, 0);
    EXPECT_TRUE(clients[0].MeetsEnd());
    EXPECT_FALSE(Exists(m_root.Of("test.orb")));
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
    EXPECT_FALSE(Exists(m_root.Of("test.orb")));
}

TEST_F(ALoop, StopsOnSignalsOnlyWhileItRuns) {
    for (const int signal : {SIGTERM, SIGINT}) {
        struct sigaction now {};
        const auto isCaught = [&] {
            return ::sigaction(signal, nullptr, &now) == 0 && now.sa_handler != SIG_DFL;
        };
        EXPECT_FALSE(isCaught());
        std::thread sender([&] {
            EXPECT_TRUE(Eventually(isCaught));
            ::kill(::getpid(), signal);
        });
        EXPECT_EQ(RunsOnThisThread(20'000), 0);
        sender.join();
        EXPECT_FALSE(isCaught());
    }
}

TEST_F(AnIoctl, GivesFutureConnectionsTheirBuffers) {
    m_askedBuffer = 0x8000;
    Runs();
    EXPECT_TRUE(TestClient().Asks(ECHO));
    EXPECT_EQ(m_sendBuffer, 2 * 0x8000); // the kernel counts its bookkeeping
}

TEST_F(AnIoctl, RefusesWhatItDoesNotKnow) {
    Runs();
    TestClient client;
    std::uint32_t words[3] = {0, 0, 0x20000};
    std::uint32_t tooLarge[3] = {0, 0, 0x80000000};
    const int file = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    const struct {
        int fd;
        unsigned long request;
        void* words;
        int error;
    } rows[] = {{client.Fd(), 0x5401, words, ENOTTY},       {file, 0x80040305, words, ENOTTY},
                {file, 0x400C0200, words, ENOTTY},          {-1, 0x80040305, words, EBADF},
                {client.Fd(), 0x80040305, nullptr, EFAULT}, {client.Fd(), 0x400C0200, tooLarge, EINVAL}};
    for (const auto& row : rows) {
        errno = 0;
        EXPECT_EQ(kestrel_ioctl(row.fd, row.request, row.words), -1);
        EXPECT_EQ(errno, row.error) << row.fd << " " << row.request;
    }
    ::close(file);
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

} // namespace PlatformTest
