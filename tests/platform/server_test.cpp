#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
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
    ASSERT_EQ(Registers(), 0);
    std::uint32_t send[3] = {0, 0, 0x8000};
    std::uint32_t receive[3] = {0, 0, 0x9000};
    EXPECT_EQ(kestrel_ioctl(m_fd, 0x400C0200, send), 0);
    EXPECT_EQ(kestrel_ioctl(m_fd, 0x400C0201, receive), 0);
    const TestClient client;
    EXPECT_EQ(RunsOnThisThread(20), 1);
    for (const auto& [option, asked] : {std::pair(SO_SNDBUF, 0x8000), std::pair(SO_RCVBUF, 0x9000)}) {
        int size = 0;
        socklen_t length = sizeof size;
        EXPECT_EQ(::getsockopt(m_fd, SOL_SOCKET, option, &size, &length), 0);
        EXPECT_EQ(size, 2 * asked); // the kernel counts its bookkeeping
    }
}

TEST_F(AnIoctl, RefusesWhatItDoesNotKnow) {
    Runs();
    const TestClient client;
    const TestClient file(::open("/dev/null", O_RDWR | O_CLOEXEC));
    std::uint32_t words[3] = {0, 0, 0x20000};
    std::uint32_t tooLarge[3] = {0, 0, 0x80000000};
    const struct {
        int fd;
        unsigned long request;
        void* words;
        int error;
    } rows[] = {{client.Fd(), 0x5401, words, ENOTTY},       {file.Fd(), 0x80040305, words, ENOTTY},
                {file.Fd(), 0x400C0200, words, ENOTTY},     {-1, 0x80040305, words, EBADF},
                {client.Fd(), 0x80040305, nullptr, EFAULT}, {client.Fd(), 0x400C0200, tooLarge, EINVAL}};
    for (const auto& row : rows) {
        errno = 0;
        EXPECT_EQ(kestrel_ioctl(row.fd, row.request, row.words), -1);
        EXPECT_EQ(errno, row.error) << row.fd << " " << row.request;
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

} // namespace PlatformTest
