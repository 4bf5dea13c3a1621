#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "appcfg/connection.h"
#include "appcfg/error.h"
#include "support/page.h"
#include "support/root_directory.h"
#include "support/scripted_peer.h"
#include "support/service_fixture.h"

namespace appcfg {
namespace {

using Support::BytesOfDump;
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

TEST_F(AClientOfTheService, CarriesTheLongestQueryAndALargeFragment) {
    Connection connection;
    auto item = connection.Create(Described());
    EXPECT_EQ(item.GetInt("mtu"), 1500);
    const std::string longest(12287 - std::string("mtu|1,hostname|").size(), 'v');
    item.SetMany({{"mtu", "1"}, {"hostname", longest}});
    EXPECT_THAT(item.GetMany({"mtu", "hostname", "wifi.ssid"}), ElementsAre("1", longest, "home"));
    const std::string large(5U << 20, 'r');
    item.SetRaw("hostname", large);
    EXPECT_EQ(item.Get("hostname"), large);
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
    EXPECT_TRUE(Support::Eventually([&] { return IsGone(first); }));
    EXPECT_NE(Text("first.json").find("9000"), std::string::npos);
}

// What the page shows is what the library sends and understands, and what the service answers.
TEST(TheProtocolPage, ShowsAnExchangeOfTheClientLibrary) {
    const std::string reply = BytesOfDump("docs/protocol.md", "hex reply");
    const Support::RootDirectory root;
    const Support::ScriptedPeer service(root.Of("storage.paas.orb"),
                                        [&](const Support::Reply&) { return reply; });
    Connection connection;
    EXPECT_THAT(connection.Open(Handle("app", "net")).GetMany({"hostname", "mtu"}),
                ElementsAre("device", "1500"));
    EXPECT_EQ(Support::FrameBytes(service.Requests().at(0)), BytesOfDump("docs/protocol.md", "hex request"));
}

TEST_F(AClientOfTheService, GetsTheReplyOfTheProtocolPage) {
    Connection connection;
    connection.Create(Described()).Release();
    ASSERT_TRUE(m_client.Sends(BytesOfDump("docs/protocol.md", "hex request")));
    const std::optional<Support::Reply> reply = m_client.Receives();
    ASSERT_TRUE(reply);
    EXPECT_EQ(Support::FrameBytes(*reply), BytesOfDump("docs/protocol.md", "hex reply"));
}

} // namespace
} // namespace appcfg
