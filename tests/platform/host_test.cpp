#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>

#include <gmock/gmock.h>

#include "test_service.h"

namespace PlatformTest {

using ::testing::HasSubstr;

// A host process in a root of the test's own.
class AHost : public ::testing::Test {
protected:
    ~AHost() override {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            Ends();
        }
    }

    // Through the shell, which becomes the host.
    void Starts(const std::string& arguments, const std::string& before = "") {
        std::string command =
            before + "exec " KESTREL_HOST " " + arguments + " >" + m_root.Of("output") + " 2>&1";
        char shell[] = "sh";
        char option[] = "-c";
        char* argv[] = {shell, option, command.data(), nullptr};
        EXPECT_EQ(::posix_spawn(&m_pid, "/bin/sh", nullptr, nullptr, argv, environ), 0);
    }
    // The exit status, or 1000 and the signal.
    int Ends() {
        int status = 0;
        ::waitpid(std::exchange(m_pid, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }
    int Runs(const std::string& arguments, const std::string& before = "") {
        Starts(arguments, before);
        return Ends();
    }

    RootDirectory m_root;
    pid_t m_pid = 0;
};

TEST_F(AHost, ReturnsTheResultOfTheEntry) {
    EXPECT_EQ(Runs(FIXTURE_LIBRARY), 7);
    EXPECT_EQ(Runs("--socket-mode 660 --socket-group 0 " FIXTURE_LIBRARY " CreateAppCfgMgmtService"), 7);
}

TEST_F(AHost, PreparesTheProcess) {
    EXPECT_EQ(Runs(FIXTURE_LIBRARY " TellWhatIsMissing", "ulimit -S -n 200; "), 0);
}

TEST_F(AHost, HearsARequestToStopAtAnyTime) {
    EXPECT_EQ(Runs(FIXTURE_LIBRARY " StopEarly"), 20);
}

TEST_F(AHost, TellsWrongUseInOneLine) {
    for (const char* arguments : {"", "a b c", "--unknown", "--socket-mode", "--socket-mode 888 a",
                                  "--socket-mode 1777 a", "--socket-group 'no such group' a"}) {
        EXPECT_EQ(Runs(arguments), 2) << arguments;
        const std::string text = m_root.Text("output");
        EXPECT_EQ(text.find('\n'), text.size() - 1) << text;
    }
    EXPECT_EQ(Runs("--help"), 0);
    EXPECT_THAT(m_root.Text("output"), HasSubstr("--socket-mode"));
}

TEST_F(AHost, TellsWhatItCannotLoad) {
    EXPECT_EQ(Runs("./nothing.so"), 1);
    EXPECT_THAT(m_root.Text("output"), HasSubstr("nothing.so"));
    EXPECT_EQ(Runs(FIXTURE_LIBRARY " NoSuchEntry"), 1);
    EXPECT_THAT(m_root.Text("output"), HasSubstr("NoSuchEntry"));
}

// The application manager in its own process, asked as a service asks it.
class AnAppManager : public AHost {
protected:
    AnAppManager() {
        Starts("--socket-mode 600 " APPMGR_LIBRARY " CreateAppMgrService");
        EXPECT_TRUE(Eventually([] { return TestClient(NAME).IsConnected(); }));
    }

    static Reply Asks(std::uint8_t method, char uri, const std::string& content) {
        std::string frame = Frame(method, content);
        frame[4] = uri;
        TestClient client(NAME);
        return client.Sends(frame) ? client.Receives().value_or(Reply{}) : Reply{};
    }

    static constexpr char NAME[] = "appmgr.paas.orb";
};

TEST_F(AnAppManager, AnswersTheRootOfAProcessInTwoPieces) {
    const Reply reply = Asks(2, 2, Bytes(static_cast<std::uint32_t>(::getpid())));
    EXPECT_EQ(reply.header.status, 200);
    EXPECT_EQ(reply.pieces, 2U);
    EXPECT_EQ(reply.firstLength, 4U);
    EXPECT_EQ(reply.payload, Bytes(0) + std::filesystem::read_symlink("/proc/self/root").string() + '\0');
}

TEST_F(AnAppManager, AnswersWhyItCannotTell) {
    const Reply reply = Asks(2, 2, Bytes(UINT32_MAX));
    EXPECT_EQ(reply.header.status, 404);
    EXPECT_EQ(reply.payload, Bytes(ENOENT));
}

TEST_F(AnAppManager, RefusesOtherRequests) {
    const Reply replies[] = {Asks(1, 2, Bytes(1)), Asks(2, 1, Bytes(1)), Asks(2, 2, "abc"),
                             Asks(2, 2, "abcde"), Asks(2, 2, "")};
    for (const Reply& reply : replies) {
        EXPECT_EQ(reply.header.status, 400);
        EXPECT_EQ(reply.header.method & 0x80, 0x80);
    }
}

TEST_F(AnAppManager, EndsWithStatus0OnASignal) {
    EXPECT_EQ(std::filesystem::status(m_root.Of(NAME)).permissions(), std::filesystem::perms{0600});
    ::kill(m_pid, SIGTERM);
    EXPECT_EQ(Ends(), 0);
    EXPECT_FALSE(std::filesystem::exists(m_root.Of(NAME)));
}

} // namespace PlatformTest
