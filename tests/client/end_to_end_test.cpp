#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "app.h"
#include "appcfg/connection.h"
#include "appcfg/error.h"
#include "document.h"
#include "fake_service.h"
#include "service/service_fixture.h"

namespace appcfg {
namespace {

using test::BlockOf;
using test::BytesOfDump;
using testing::ElementsAre;

constexpr char DEFAULT_TEXT[] = R"({"hostname": "device", "mtu": 1500, "wifi": {"ssid": "home"}})";

bool IsGone(const Item& item) {
    try {
        item.GetRaw();
        return false;
    } catch (const RequestRefused& refused) {
        return refused.Status() == 404;
    }
}

class AClientOfTheService : public ServiceTest::AService {
protected:
    ItemDescription Described(const std::string& name = "net") const {
        ItemDescription item{Handle("app", name)};
        item.path = Path(name + ".json");
        item.backupPath = Path(name + ".bak");
        item.defaultPath = Writes(name + ".default", DEFAULT_TEXT);
        return item;
    }
};

TEST_F(AClientOfTheService, WorksOnAnItemFromItsDefaultToItsEnd) {
    Connection connection;
    auto item = connection.Create(Described());
    EXPECT_EQ(Text("net.json"), DEFAULT_TEXT);
    EXPECT_EQ(item.GetInt("mtu"), 1500);

    item.SetMany({{"mtu", "1400"}, {"wifi.ssid", " a=b "}});
    EXPECT_THAT(item.GetMany({"mtu", "hostname", "wifi.ssid"}), ElementsAre("1400", "device", " a=b "));
    item.SetRaw("hostname", "kitchen, left | right");
    EXPECT_EQ(item.Get("hostname"), "kitchen, left | right");
    EXPECT_EQ(item.GetRaw("wifi"), "{\n  \"ssid\": \" a=b \"\n}");
    // The sets before may still be rewriting the files when the raw set has been answered.
    for (const char* file : {"net.json", "net.bak"}) {
        EXPECT_TRUE(ServiceTest::Eventually([&] { return Text(file) == item.GetRaw(); })) << file;
    }

    item.Restore();
    EXPECT_EQ(item.Get("hostname"), "device");
    EXPECT_EQ(Text("net.json"), DEFAULT_TEXT);
    item.Delete();
    EXPECT_TRUE(IsGone(item));
}

TEST_F(AClientOfTheService, SharesItsItemsAndTakesThemAlong) {
    auto holder = std::make_unique<Connection>();
    holder->Create(Described("first")).Release();
    auto second = holder->Create(Described("second"));
    Connection other;
    auto first = other.Open(Handle("app", "first"));
    first.Set("mtu", "9000");
    EXPECT_EQ(holder->Open(Handle("app", "first")).Get("mtu"), "9000");

    { const auto ended = std::move(second); }
    EXPECT_TRUE(IsGone(other.Open(Handle("app", "second"))));
    EXPECT_FALSE(IsGone(first));
    holder.reset();
    EXPECT_TRUE(PlatformTest::Eventually([&] { return IsGone(first); }));
    EXPECT_NE(Text("first.json").find("9000"), std::string::npos);
}

TEST_F(AClientOfTheService, EncryptsItsFilesWithItsKeyAndStoresThemPlainAgain) {
    Connection connection;
    ItemDescription described = Described();
    described.defaultPath.clear(); // an encrypted JSON default cannot be read again
    Writes("net.json", DEFAULT_TEXT);
    auto item = connection.Create(described);
    EncryptionKey key;
    key.key.fill(0x5A);
    item.ChangeKey(key);
    const std::string encrypted = Text("net.json");
    EXPECT_EQ(encrypted.size() % 16, 0U);
    EXPECT_EQ(encrypted.find("hostname"), std::string::npos);
    EXPECT_EQ(Text("net.bak"), encrypted);
    EXPECT_EQ(item.Get("hostname"), "device");
    item.ChangeToPlain();
    EXPECT_EQ(Text("net.json"), item.GetRaw());
    EXPECT_EQ(Text("net.bak"), item.GetRaw());
}

TEST_F(AClientOfTheService, FillsARequestToItsLastByte) {
    Connection connection;
    auto item = connection.Create(Described());
    const std::string longest(12287 - std::string("hostname|").size(), 'v');
    item.Set("hostname", longest);
    EXPECT_EQ(item.Get("hostname"), longest);
    const std::string large(5U << 20, 'r');
    item.SetRaw("hostname", large);
    EXPECT_EQ(item.Get("hostname"), large);
}

// What the page shows is what the library sends and understands, and what the service answers.
TEST(TheProtocolPage, ShowsAnExchangeOfTheClientLibrary) {
    const std::string reply = BytesOfDump(BlockOf("protocol.md", "hex reply"));
    const test::RootDirectory root;
    const test::FakeService service(root, [&](const test::WholeFrame&) { return reply; });
    Connection connection;
    EXPECT_THAT(connection.Open(Handle("app", "net")).GetMany({"hostname", "mtu"}),
                ElementsAre("device", "1500"));
    EXPECT_EQ(test::BytesOf(service.Requests().at(0)), BytesOfDump(BlockOf("protocol.md", "hex request")));
}

TEST_F(AClientOfTheService, GetsTheReplyOfTheProtocolPage) {
    Connection connection;
    connection.Create(Described()).Release();
    ASSERT_TRUE(m_client.Sends(BytesOfDump(BlockOf("protocol.md", "hex request"))));
    const std::optional<test::WholeFrame> reply = m_client.Receives();
    ASSERT_TRUE(reply);
    EXPECT_EQ(test::BytesOf(*reply), BytesOfDump(BlockOf("protocol.md", "hex reply")));
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
    const std::string text = BlockOf("keys.md", format);
    const std::string session = BlockOf("keys.md", "session", "\n```" + format + "\n");
    const std::string item = Writes("item", R"({"handle": "app/net", "storage": ")" + format +
                                                R"(", "path": ")" + Writes("net", text) + R"("})");
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
