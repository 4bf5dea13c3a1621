#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <fstream>
#include <sstream>

#include "test_service.h"

namespace PlatformTest {

// A host process in a root of the test's own.
class AHost : public ::testing::Test {
protected:
    ~AHost() override {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            Ends();
        }
    }

    void Starts(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), KESTREL_HOST);
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, m_root.Of("stderr").c_str(),
                                           O_CREAT | O_WRONLY, 0600);
        ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, m_root.Of("stdout").c_str(),
                                           O_CREAT | O_WRONLY, 0600);
        EXPECT_EQ(::posix_spawn(&m_pid, KESTREL_HOST, &actions, nullptr, argv.data(), environ), 0);
        ::posix_spawn_file_actions_destroy(&actions);
    }
    // The exit status, or 1000 and the signal.
    int Ends() {
        int status = 0;
        ::waitpid(std::exchange(m_pid, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }
    int Runs(const std::vector<std::string>& arguments) {
        Starts(arguments);
        return Ends();
    }
    std::string Wrote(const std::string& name) {
        std::ostringstream text;
        text << std::ifstream(m_root.Of(name)).rdbuf();
        return text.str();
    }

    RootDirectory m_root;
    pid_t m_pid = 0;
};

TEST_F(AHost, ReturnsTheResultOfTheEntry) {
    EXPECT_EQ(Runs({FIXTURE_LIBRARY}), 7);
    EXPECT_EQ(
        Runs({"--socket-mode", "660", "--socket-group", "0", FIXTURE_LIBRARY, "CreateAppCfgMgmtService"}), 7);
}

TEST_F(AHost, PreparesTheProcess) {
    rlimit former{};
    ::getrlimit(RLIMIT_NOFILE, &former);
    const rlimit low{200, former.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &low);
    EXPECT_EQ(Runs({FIXTURE_LIBRARY, "TellWhatIsMissing"}), 0);
    ::setrlimit(RLIMIT_NOFILE, &former);
}

TEST_F(AHost, HearsARequestToStopAtAnyTime) {
    EXPECT_EQ(Runs({FIXTURE_LIBRARY, "StopEarly"}), 20);
}

TEST_F(AHost, TellsWrongUseInOneLine) {
    const std::vector<std::vector<std::string>> wrong = {{},
                                                         {"a", "b", "c"},
                                                         {"--unknown"},
                                                         {"--socket-mode"},
                                                         {"--socket-mode", "888", "a"},
                                                         {"--socket-mode", "1777", "a"},
                                                         {"--socket-group", "no such group", "a"}};
    for (const std::vector<std::string>& arguments : wrong) {
        EXPECT_EQ(Runs(arguments), 2);
        const std::string text = Wrote("stderr");
        EXPECT_EQ(text.find('\n'), text.size() - 1) << text;
        ::unlink(m_root.Of("stderr").c_str());
    }
    EXPECT_EQ(Runs({"--help"}), 0);
    EXPECT_NE(Wrote("stdout").find("--socket-mode"), std::string::npos);
}

TEST_F(AHost, TellsWhatItCannotLoad) {
    EXPECT_EQ(Runs({m_root.Of("nothing.so")}), 1);
    EXPECT_NE(Wrote("stderr").find("nothing.so"), std::string::npos);
    EXPECT_EQ(Runs({FIXTURE_LIBRARY, "NoSuchEntry"}), 1);
    EXPECT_NE(Wrote("stderr").find("NoSuchEntry"), std::string::npos);
}

// The application manager in its own process, asked as a service asks it.
class AnAppManager : public AHost {
protected:
    AnAppManager() {
        Starts({"--socket-mode", "600", APPMGR_LIBRARY, "CreateAppMgrService"});
        EXPECT_TRUE(Eventually([] { return TestClient("appmgr.paas.orb").IsConnected(); }));
    }
    ~AnAppManager() override { tern_message_put(m_msg); }

    int Asks(std::uint8_t method, std::uint16_t uri, const std::string& content) {
        TestClient client("appmgr.paas.orb");
        tern_header_clear(m_msg);
        tern_content_clear(m_msg);
        m_msg->header->method = method;
        m_msg->header->uri = uri;
        tern_content_add(m_msg, content.data(), static_cast<std::uint32_t>(content.size()), 0);
        const bool answered =
            tern_message_sendfd(m_msg, client.Fd()) >= 0 && tern_message_recvfd(m_msg, client.Fd()) >= 0;
        return answered ? m_msg->header->status : -1;
    }
    std::string Asks(pid_t pid) { return std::to_string(Asks(2, 2, Bytes(static_cast<std::uint32_t>(pid)))); }

    tern_message* m_msg = tern_message_new(0);
};

TEST_F(AnAppManager, AnswersTheRootOfAProcessInTwoPieces) {
    ASSERT_EQ(Asks(::getpid()), "200");
    std::uint32_t record[2];
    std::memcpy(record, tern_content_struct(m_msg, 0, 8), sizeof record);
    EXPECT_EQ(record[0], 2U);
    ASSERT_EQ(record[1], 4U);
    EXPECT_EQ(std::string(static_cast<char*>(tern_content_struct(m_msg, 8, 4)), 4), Bytes(0));
    char root[PATH_MAX] = "";
    ASSERT_GT(::readlink("/proc/self/root", root, sizeof root - 1), 0);
    const std::uint32_t length = m_msg->header->length - 8 - record[1];
    ASSERT_EQ(length, std::strlen(root) + 1);
    EXPECT_STREQ(static_cast<char*>(tern_content_struct(m_msg, 8 + record[1], length)), root);
}

TEST_F(AnAppManager, AnswersWhyItCannotTell) {
    EXPECT_EQ(Asks(-1), "404");
    EXPECT_EQ(m_msg->header->length, 12U);
    EXPECT_EQ(std::string(static_cast<char*>(tern_content_struct(m_msg, 8, 4)), 4), Bytes(ENOENT));
}

TEST_F(AnAppManager, RefusesOtherRequests) {
    EXPECT_EQ(Asks(1, 2, Bytes(1)), 400);
    EXPECT_EQ(Asks(2, 1, Bytes(1)), 400);
    EXPECT_EQ(Asks(2, 2, "abc"), 400);
    EXPECT_EQ(Asks(2, 2, "abcde"), 400);
    EXPECT_EQ(Asks(2, 2, ""), 400);
    EXPECT_EQ(m_msg->header->method, 0x82);
}

TEST_F(AnAppManager, EndsWithStatus0OnASignal) {
    struct stat socket {};
    EXPECT_EQ(::stat(m_root.Of("appmgr.paas.orb").c_str(), &socket), 0);
    EXPECT_EQ(socket.st_mode & 0777U, 0600U);
    ::kill(m_pid, SIGTERM);
    EXPECT_EQ(Ends(), 0);
    EXPECT_NE(::access(m_root.Of("appmgr.paas.orb").c_str(), F_OK), 0);
}

} // namespace PlatformTest
