#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <functional>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "app.h"
#include "appcfg/connection.h"
#include "appcfg/error.h"
#include "document.h"
#include "scratch_root.h"
#include "service_thread.h"

namespace appcfg {
namespace {

using test::ScratchRoot;
using test::ServiceThread;
using testing::ElementsAre;

constexpr char DEFAULT_TEXT[] = R"({"hostname": "device", "mtu": 1500, "wifi": {"ssid": "home"}})";

class AClientOfTheService : public testing::Test {
protected:
    ItemDescription Described(const std::string& name = "net") const {
        ItemDescription item{Handle("app", name)};
        item.path = m_root.Path() + "/" + name + ".json";
        item.backupPath = m_root.Path() + "/" + name + ".bak";
        item.defaultPath = m_root.Write(name + ".default", DEFAULT_TEXT);
        return item;
    }

    // What the service does once it sees a close, it does soon after.
    static bool Eventually(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    static bool IsGone(const Item& item) {
        try {
            item.GetRaw();
            return false;
        } catch (const RequestRefused& refused) {
            return refused.Status() == 404;
        }
    }

    ScratchRoot m_root;
    ServiceThread m_service;
};

TEST_F(AClientOfTheService, WorksOnAnItemFromItsDefaultToItsEnd) {
    Connection connection;
    Item item = connection.Create(Described());
    EXPECT_EQ(m_root.Read("net.json"), DEFAULT_TEXT);
    EXPECT_EQ(item.GetInt("mtu"), 1500);

    item.SetMany({{"mtu", "1400"}, {"wifi.ssid", " a=b "}});
    EXPECT_THAT(item.GetMany({"mtu", "hostname", "wifi.ssid"}), ElementsAre("1400", "device", " a=b "));
    item.SetRaw("hostname", "kitchen, left | right");
    EXPECT_EQ(item.Get("hostname"), "kitchen, left | right");
    EXPECT_EQ(item.GetRaw("wifi"), "{\n  \"ssid\": \" a=b \"\n}");
    EXPECT_EQ(m_root.Read("net.json"), item.GetRaw()) << "a raw set of an instant item is on disk";
    EXPECT_EQ(m_root.Read("net.bak"), item.GetRaw());

    item.Restore();
    EXPECT_EQ(item.Get("hostname"), "device");
    EXPECT_EQ(m_root.Read("net.json"), DEFAULT_TEXT);
    item.Delete();
    EXPECT_TRUE(IsGone(item));
}

TEST_F(AClientOfTheService, SharesItsItemsAndTakesThemAlong) {
    auto holder = std::make_unique<Connection>();
    holder->Create(Described("first")).Release();
    Item second = holder->Create(Described("second"));
    Connection other;
    Item first = other.Open(Handle("app", "first"));
    first.Set("mtu", "9000");
    EXPECT_EQ(holder->Open(Handle("app", "first")).Get("mtu"), "9000");

    { const Item ended = std::move(second); }
    EXPECT_TRUE(IsGone(other.Open(Handle("app", "second"))));
    EXPECT_FALSE(IsGone(first));
    holder.reset();
    EXPECT_TRUE(Eventually([&] { return IsGone(first); }));
    EXPECT_NE(m_root.Read("first.json").find("9000"), std::string::npos);
}

TEST_F(AClientOfTheService, EncryptsItsFilesWithItsKeyAndStoresThemPlainAgain) {
    Connection connection;
    ItemDescription described = Described();
    described.defaultPath.clear(); // an encrypted JSON default cannot be read again
    m_root.Write("net.json", DEFAULT_TEXT);
    Item item = connection.Create(described);
    EncryptionKey key;
    key.key.fill(0x5A);
    item.ChangeKey(key);
    const std::string encrypted = m_root.Read("net.json");
    EXPECT_EQ(encrypted.size() % 16, 0U);
    EXPECT_EQ(encrypted.find("hostname"), std::string::npos);
    EXPECT_EQ(m_root.Read("net.bak"), encrypted);
    EXPECT_EQ(item.Get("hostname"), "device");
    item.ChangeToPlain();
    EXPECT_EQ(m_root.Read("net.json"), item.GetRaw());
    EXPECT_EQ(m_root.Read("net.bak"), item.GetRaw());
}

TEST_F(AClientOfTheService, FillsARequestToItsLastByte) {
    Connection connection;
    Item item = connection.Create(Described());
    const std::string longest(12287 - std::string("hostname|").size(), 'v');
    item.Set("hostname", longest);
    EXPECT_EQ(item.Get("hostname"), longest);
    const std::string large(5U << 20, 'r');
    item.SetRaw("hostname", large);
    EXPECT_EQ(item.Get("hostname"), large);
}

// What the page shows is what the library sends and understands, and what the service answers.
TEST(TheProtocolPage, ShowsAnExchangeOfTheClientLibrary) {
    const test::Bytes request = test::BytesOfDump(test::BlockOf("protocol.md", "hex request"));
    test::Bytes reply = test::BytesOfDump(test::BlockOf("protocol.md", "hex reply"));
    const ScratchRoot root;
    const test::FakeService service(root.Path(), [&](const test::Bytes&) { return reply; });
    Connection connection;
    EXPECT_THAT(connection.Open(Handle("app", "net")).GetMany({"hostname", "mtu"}),
                ElementsAre("device", "1500"));
    EXPECT_EQ(service.Requests().at(0), request);
}

TEST_F(AClientOfTheService, GetsTheReplyOfTheProtocolPage) {
    Connection connection;
    connection.Create(Described()).Release();
    const test::Bytes request = test::BytesOfDump(test::BlockOf("protocol.md", "hex request"));
    test::Bytes reply = test::BytesOfDump(test::BlockOf("protocol.md", "hex reply"));
    const test::Bytes expected = std::exchange(reply, test::Bytes(reply.size()));
    const int fd = kestrel_open("/mnt/kestrel/storage.paas.orb", O_RDWR);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(send(fd, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    EXPECT_EQ(recv(fd, reply.data(), reply.size(), MSG_WAITALL), static_cast<ssize_t>(reply.size()));
    EXPECT_EQ(reply, expected);
    close(fd);
}

// For double quotes of the shell.
std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        escaped += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    return escaped;
}

// Runs the commands of the page's session for each format and compares all that they print.
class TheKeysPage : public AClientOfTheService, public testing::WithParamInterface<const char*> {};

TEST_P(TheKeysPage, ShowsWhatAClientSees) {
    const std::string format = GetParam();
    const std::string text = test::BlockOf("keys.md", format);
    const std::string session = test::BlockOf("keys.md", "session", "\n```" + format + "\n");
    const std::string item =
        m_root.Write("item", R"({"handle": "app/net", "storage": ")" + format + R"(", "path": ")" +
                                 m_root.Write("net", text) + R"("})");
    std::string commands;
    std::istringstream lines(session);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("appcfg> ", 0) == 0) {
            commands += "echo \"" + Escaped(line) + "\"\n" + line.substr(8) + "\n";
        }
    }
    std::istringstream in(commands);
    std::ostringstream out;
    cli::RunApp({"shell", item}, {in, out, out, false});
    EXPECT_EQ(out.str(), "created app/net/0\n" + session);
}

INSTANTIATE_TEST_SUITE_P(Of, TheKeysPage, testing::Values("json", "xml", "ini"),
                         [](const auto& format) { return std::string(format.param); });

} // namespace
} // namespace appcfg
