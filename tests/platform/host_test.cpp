#include "support/host_process.h"
#include "test_service.h"

namespace PlatformTest {

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

    RootDirectory m_root;
    std::optional<HostProcess> m_host;
};

TEST_F(AHost, EndsAsItsEntryOrItsUseSays) {
    const std::string library = FIXTURE_LIBRARY;
    const std::string missing = library + " TellWhatIsMissing";
    const struct {
        const char* before;
        std::string arguments;
        int status;
        const char* output; // a pattern of all of it
    } rows[] = {
        {"", library, 7, ""},
        {"", "--socket-mode 660 --socket-group 4294967294 " + library + " CreateAppCfgMgmtService", 7, ""},
        {"exec <&-; ulimit -S -n 200; ", missing, 0, ""},
        {"ulimit -S -n $(ulimit -H -n); ", missing, 0, ""},
        {"", library + " StopEarly", 20, ""}, // a request to stop is heard at any time
        {"", "", 2, "[^\n]+\n"},
        {"", "a b c", 2, "[^\n]+\n"},
        {"", "--unknown", 2, "[^\n]+\n"},
        {"", "--socket-mode", 2, "[^\n]+\n"},
        {"", "--socket-mode 888 a", 2, "[^\n]+\n"},
        {"", "--socket-mode 1777 a", 2, "[^\n]+\n"},
        {"", "--socket-group 'no such group' a", 2, "[^\n]+\n"},
        {"", "--socket-group 4294967295 a", 2, "[^\n]+\n"},
        {"", "--help", 0, "[^]*--socket-mode[^]*"},
        {"", "./nothing.so", 1, "[^\n]*nothing.so[^\n]*\n"},
        {"", library + " NoSuchEntry", 1, "[^\n]*NoSuchEntry[^\n]*\n"},
    };
    for (const auto& row : rows) {
        Starts(row.arguments, row.before);
        EXPECT_EQ(m_host->Wait(), row.status) << row.arguments;
        const std::string output = m_root.Text("service.log");
        EXPECT_TRUE(std::regex_match(output, std::regex(row.output))) << row.arguments << output;
    }
}

// In its own process, asked as a service asks it.
TEST_F(AHost, RunsTheAppManager) {
    constexpr char NAME[] = "appmgr.paas.orb";
    Starts("--socket-mode 600 " APPMGR_LIBRARY " CreateAppMgrService");
    ASSERT_TRUE(Eventually([&] { return TestClient(NAME).IsConnected(); }));
    const auto asks = [&](uint8_t method, uint16_t uri, const std::string& content) {
        TestClient client(NAME);
        return client.Sends(Frame(method, content, 0, uri)) ? client.Receives().value_or(Reply{}) : Reply{};
    };
    const Reply root = asks(2, 2, Bytes(static_cast<uint32_t>(::getpid())));
    EXPECT_EQ(root.header.status, 200);
    EXPECT_EQ(root.pieces, 2U);
    EXPECT_EQ(root.firstLength, 4U);
    EXPECT_EQ(root.payload, Bytes(0) + std::filesystem::read_symlink("/proc/self/root").string() + '\0');
    const Reply unknown = asks(2, 2, Bytes(UINT32_MAX));
    EXPECT_EQ(unknown.header.status, 404);
    EXPECT_EQ(unknown.payload, Bytes(ENOENT));
    for (const Reply& refused : {asks(1, 2, Bytes(1)), asks(2, 1, Bytes(1)), asks(2, 2, "abc"),
                                 asks(2, 2, "abcde"), asks(2, 2, "")}) {
        EXPECT_EQ(refused.header.status, 400);
        EXPECT_EQ(refused.header.method & 0x80, 0x80);
    }
    EXPECT_EQ(std::filesystem::status(m_root.Of(NAME)).permissions(), std::filesystem::perms{0600});
    EXPECT_EQ(m_host->Stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(m_root.Of(NAME)));
}

} // namespace PlatformTest
