#include <cerrno>

#include <gmock/gmock.h>

#include "support/host_process.h"
#include "test_service.h"

namespace PlatformTest {

using ::testing::HasSubstr;

// A host process in a root of the test's own.
class AHost : public ::testing::Test {
protected:
    // Through the shell, which becomes the host.
    void Starts(const std::string& arguments, const std::string& before = "") {
        const std::string command = before + "exec " KESTREL_HOST " " + arguments + " >&2";
        m_host.emplace(std::vector<std::string>{"sh", "-c", command}, m_root.Path());
        m_root.Writes("service.log", "");
        m_host->Spawn();
    }
    int Runs(const std::string& arguments, const std::string& before = "") {
        Starts(arguments, before);
        return m_host->Wait();
    }
    std::string Output() const { return m_root.Text("service.log"); }

    RootDirectory m_root;
    std::optional<HostProcess> m_host;
};

TEST_F(AHost, ReturnsTheResultOfTheEntry) {
    EXPECT_EQ(Runs(FIXTURE_LIBRARY), 7);
    EXPECT_EQ(Runs("--socket-mode 660 --socket-group 4294967294 " FIXTURE_LIBRARY " CreateAppCfgMgmtService"),
              7);
}

TEST_F(AHost, PreparesTheProcess) {
    for (const char* limit : {"exec <&-; ulimit -S -n 200; ", "ulimit -S -n $(ulimit -H -n); "}) {
        EXPECT_EQ(Runs(FIXTURE_LIBRARY " TellWhatIsMissing", limit), 0) << limit;
    }
}

TEST_F(AHost, HearsARequestToStopAtAnyTime) {
    EXPECT_EQ(Runs(FIXTURE_LIBRARY " StopEarly"), 20);
}

TEST_F(AHost, TellsWrongUseInOneLine) {
    for (const char* arguments :
         {"", "a b c", "--unknown", "--socket-mode", "--socket-mode 888 a", "--socket-mode 1777 a",
          "--socket-group 'no such group' a", "--socket-group 4294967295 a"}) {
        EXPECT_EQ(Runs(arguments), 2) << arguments;
        const std::string text = Output();
        EXPECT_EQ(text.find('\n'), text.size() - 1) << text;
    }
    EXPECT_EQ(Runs("--help"), 0);
    EXPECT_THAT(Output(), HasSubstr("--socket-mode"));
}

TEST_F(AHost, TellsWhatItCannotLoad) {
    EXPECT_EQ(Runs("./nothing.so"), 1);
    EXPECT_THAT(Output(), HasSubstr("nothing.so"));
    EXPECT_EQ(Runs(FIXTURE_LIBRARY " NoSuchEntry"), 1);
    EXPECT_THAT(Output(), HasSubstr("NoSuchEntry"));
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
    EXPECT_EQ(m_host->Stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(m_root.Of(NAME)));
}

} // namespace PlatformTest
