#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "test_service.h"

namespace PlatformTest {

namespace {

// What a server leaves behind that was killed.
void LeaveStaleSocket(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const void* untyped = &address;
    ASSERT_EQ(::bind(fd, static_cast<const sockaddr*>(untyped), sizeof address), 0);
    ::close(fd);
}

mode_t ModeOf(const std::string& path) {
    struct stat found {};
    return ::stat(path.c_str(), &found) == 0 ? found.st_mode & 0777U : 0U;
}

bool Exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

} // namespace

using ARegistration = AServer;
using ALoop = AServer;
using AnIoctl = AServer;

TEST_F(ARegistration, ReplacesTheSocketOfADeadServer) {
    LeaveStaleSocket(m_root.Of("test.orb"));
    Runs();
    EXPECT_TRUE(TestClient().Asks(ECHO));
}

TEST_F(ARegistration, LeavesALiveServerAlone) {
    Runs();
    kestrel_event_mgr* second = kestrel_event_mgr_new(0);
    static const kestrel_server_ops OPS = {[](kestrel_server*, void*) { return 0; }, nullptr};
    EXPECT_NE(kestrel_server_register("test.orb", second, &OPS), 0);
    kestrel_event_mgr_free(second);
    EXPECT_TRUE(TestClient().Asks(ECHO));
    EXPECT_EQ(m_log.Count("taken by a running server"), 1U);
}

TEST_F(ARegistration, LeavesAFileThatIsNoSocketAlone) {
    std::ofstream(m_root.Of("test.orb")) << "kept";
    EXPECT_NE(Registers(), 0);
    EXPECT_EQ(std::filesystem::file_size(m_root.Of("test.orb")), 4U);
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
    kestrel_socket_access(0640, static_cast<int>(::getgid()));
    EXPECT_EQ(Registers("narrow.orb"), 0);
    kestrel_socket_access(0666, -1);
    ::umask(former);
    EXPECT_EQ(ModeOf(m_root.Of("open.orb")), 0666U);
    EXPECT_EQ(ModeOf(m_root.Of("narrow.orb")), 0640U);
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

TEST_F(ALoop, LeavesTheSocketOfItsSuccessorAlone) {
    Runs();
    ::unlink(m_root.Of("test.orb").c_str());
    LeaveStaleSocket(m_root.Of("test.orb"));
    EXPECT_EQ(Stops(), 0);
    EXPECT_TRUE(Exists(m_root.Of("test.orb")));
}

TEST_F(ALoop, EndsAtOnceWhenItWasStoppedBeforeItRan) {
    kestrel_event_mgr_stop(m_mgr);
    EXPECT_EQ(RunsOnThisThread(-1), 0);
}

TEST_F(ALoop, EndsWhenItsTimeRunsOutAndMayRunAgain) {
    ASSERT_EQ(Registers(), 0);
    TestClient client;
    ASSERT_TRUE(client.Sends(Frame(ECHO)));
    EXPECT_EQ(RunsOnThisThread(20), 1);
    EXPECT_TRUE(client.Receives());
    EXPECT_EQ(RunsOnThisThread(0), 1);
    EXPECT_EQ(m_closed, 0);
}

TEST_F(ALoop, StopsOnSignalsOnlyWhileItRuns) {
    struct sigaction before {};
    ::sigaction(SIGTERM, nullptr, &before);
    for (const int signal : {SIGTERM, SIGINT}) {
        std::thread sender([&] {
            struct sigaction now {};
            EXPECT_TRUE(Eventually(
                [&] { return ::sigaction(signal, nullptr, &now) == 0 && now.sa_handler != SIG_DFL; }));
            ::kill(::getpid(), signal);
        });
        EXPECT_EQ(RunsOnThisThread(20'000), 0);
        sender.join();
    }
    struct sigaction after {};
    ::sigaction(SIGTERM, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
}

TEST_F(ALoop, TellsClosedWhenItIsFreedWithoutAStop) {
    ASSERT_EQ(Registers(), 0);
    TestClient client;
    ASSERT_TRUE(client.Sends(Frame(ECHO)));
    EXPECT_EQ(RunsOnThisThread(20), 1);
    kestrel_event_mgr_free(std::exchange(m_mgr, nullptr));
    EXPECT_EQ(m_closed, 1);
    EXPECT_FALSE(Exists(m_root.Of("test.orb")));
}

TEST_F(AnIoctl, TellsThePeersPid) {
    Runs();
    TestClient client;
    std::int32_t pid = 0;
    EXPECT_EQ(kestrel_ioctl(client.Fd(), 0x80040305, &pid), 0);
    EXPECT_EQ(pid, ::getpid());
}

TEST_F(AnIoctl, GivesFutureConnectionsTheirBuffers) {
    m_sendBuffer = 0x8000;
    Runs();
    const std::optional<Reply> reply = TestClient().Asks(TELL_SEND_BUFFER);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->payload, Bytes(2 * m_sendBuffer)); // the kernel counts its bookkeeping
}

TEST_F(AnIoctl, RefusesWhatItDoesNotKnow) {
    Runs();
    TestClient client;
    std::uint32_t words[3] = {0, 0, 0x20000};
    const int file = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    const auto failsWith = [&](int fd, unsigned long request, void* arg) {
        return kestrel_ioctl(fd, request, arg) == -1 ? errno : 0;
    };
    EXPECT_EQ(failsWith(client.Fd(), 0x5401, words), ENOTTY);
    EXPECT_EQ(failsWith(file, 0x80040305, words), ENOTTY);
    EXPECT_EQ(failsWith(file, 0x400C0200, words), ENOTTY);
    EXPECT_EQ(failsWith(-1, 0x80040305, words), EBADF);
    EXPECT_EQ(failsWith(client.Fd(), 0x80040305, nullptr), EFAULT);
    words[2] = 0x80000000;
    EXPECT_EQ(failsWith(client.Fd(), 0x400C0200, words), EINVAL);
    ::close(file);
}

TEST(AnOpen, TellsWhyItFailed) {
    const RootDirectory root;
    const auto failsWith = [](const std::string& path) {
        return kestrel_open(path.c_str(), O_RDWR) < 0 ? errno : 0;
    };
    EXPECT_EQ(failsWith("/mnt/kestrel/nobody.orb"), ENOENT);
    EXPECT_EQ(failsWith("/mnt/kestrel/" + std::string(200, 'n')), ENAMETOOLONG);
    LeaveStaleSocket(root.Of("dead.orb"));
    EXPECT_EQ(failsWith("/mnt/kestrel/dead.orb"), ECONNREFUSED);
    EXPECT_EQ(failsWith(root.Of("dead.orb")), ECONNREFUSED); // a path elsewhere is taken as it is
}

} // namespace PlatformTest
