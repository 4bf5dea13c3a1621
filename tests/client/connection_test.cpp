// The library against a service that does what a script says, and against the service itself.
#include <algorithm>
#include <csignal>
#include <future>
#include <sys/socket.h>
#include <sys/time.h>

#include "appcfg/connection.h"
#include "appcfg/error.h"
#include "support/page.h"
#include "support/scripted_peer.h"
#include "support/service_fixture.h"

namespace appcfg {
namespace {

using namespace std::chrono_literals;
using Support::BytesOfDump;
using Support::Reply;
using Support::ReplyTo;
using Support::RootDirectory;
using Support::ScriptedPeer;
using testing::ElementsAre;

ItemDescription Described(const std::string& path = "/p") {
    ItemDescription item{Handle("app", "net", 7)};
    item.path = path;
    return item;
}

// A client of a service that does all that it is asked to.
class AClient : public testing::Test {
protected:
    auto Deletes() const {
        const auto frames = m_service.Requests();
        return std::count_if(frames.begin(), frames.end(),
                             [](const Reply& frame) { return frame.header.method == 4; });
    }

    RootDirectory m_root;
    ScriptedPeer m_service{m_root.Of("storage.paas.orb"),
                           [](const Reply& request) { return ReplyTo(request, 200); }};
    Connection m_connection;
    Item m_item = m_connection.Open(Handle("app", "other"));
};

TEST_F(AClient, SendsNothingThatDoesNotFit) {
    EXPECT_THROW(m_item.GetRaw(std::string(128, 'k')), InvalidArgument);
    EXPECT_THROW(m_item.SetRaw("k", std::string("a\0b", 3)), InvalidArgument);
    EXPECT_THROW(m_item.SetRaw("k", std::string((16U << 20) - 204, 'x')), InvalidArgument);
    EXPECT_THROW(m_connection.Create(Described(std::string(256, 'p'))), InvalidArgument);
    EXPECT_THROW(m_connection.Create(Described("")), InvalidArgument);
    EXPECT_TRUE(m_service.Requests().empty());
    m_item.SetRaw(std::string(127, 'k'), "");
    EXPECT_EQ(m_service.Requests().size(), 1U);
}

TEST_F(AClient, DeletesWhatItOwnsOnceAndNothingElse) {
    {
        m_connection.Create(Described()).Release();
        Item owned = m_connection.Create(Described());
        const Item moved = std::move(owned);
    }
    EXPECT_EQ(Deletes(), 1);
    m_connection.Create(Described()).Delete();
    EXPECT_EQ(Deletes(), 2);
    Item assigned = m_connection.Create(Described());
    assigned = m_connection.Open(m_item.GetHandle());
    EXPECT_EQ(Deletes(), 3);
    assigned = m_connection.Create(Described());
    assigned = m_connection.Create(Described());
    EXPECT_EQ(Deletes(), 3) << "the older object ends nothing of the newer one";
    m_connection.Open(Described().handle).Delete();
    assigned = m_connection.Open(m_item.GetHandle());
    EXPECT_EQ(Deletes(), 4) << "deleted by another object";
}

TEST_F(AClient, FailsOnItemsOfAConnectionThatIsClosedAndLetsThemGoQuietly) {
    Item item = m_connection.Create(Described());
    Connection moved = std::move(m_connection);
    EXPECT_NO_THROW(item.Restore()) << "items follow a connection that is moved";
    moved.Close();
    EXPECT_THROW(item.Restore(), ConnectionError);
    EXPECT_THROW(moved.Create(Described()), ConnectionError);
}

// Every reply that is not the answer to the request ends the connection; none is taken for an answer.
TEST(AnAnswer, IsNoOtherReply) {
    const auto changed = [](size_t at, int mask) {
        return [at, mask](const Reply& request) {
            std::string reply = ReplyTo(request, 200, Support::ValuesPayload({"v"}));
            reply[at] = static_cast<char>(reply[at] ^ mask);
            return reply;
        };
    };
    const std::pair<const char*, ScriptedPeer::Script> hostile[] = {
        {"another magic", changed(0, 0xFF)},
        {"no reply bit", changed(3, 0x80)},
        {"another method", changed(3, 0x01)},
        {"another uri", changed(4, 0x01)},
        {"another sequence", changed(8, 0xFF)},
        {"more values than keys", changed(24, 0x02)},
        {"no content", [](const Reply& request) { return ReplyTo(request, 200); }},
        {"half a header", [](const Reply&) { return "TN"; }},
        {"nothing", [](const Reply&) { return ""; }},
    };
    for (const auto& [what, script] : hostile) {
        const RootDirectory root;
        const ScriptedPeer service(root.Of("storage.paas.orb"), script);
        Connection connection;
        Item item = connection.Open(Handle("app", "net"));
        EXPECT_THROW(item.Get("k"), ConnectionError) << what;
        EXPECT_THROW(item.Get("k"), ConnectionError) << what;
        EXPECT_EQ(service.Requests().size(), 1U) << what;
    }
}

// The queue has two places: one is left to be asked through, and to be sent more than a socket holds.
TEST(AStoppedService, IsGivenUpAfterTheTimeOut) {
    const RootDirectory root;
    const int listener = Support::Listen(root.Of("storage.paas.orb"), 1);
    Connection asking(50ms);
    Connection sending(50ms);
    EXPECT_THROW(Connection(50ms), TimeoutError) << "the queue is full";
    std::signal(SIGALRM, [](int) {}); // none of which begins the time anew
    const itimerval often{{0, 10'000}, {0, 10'000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    auto waiting = std::async(std::launch::async, [] { return Connection(); });
    const Item item = asking.Open(Handle("app", "net"));
    EXPECT_THROW(item.Get("k"), TimeoutError);
    EXPECT_THAT([&] { item.Get("k"); }, testing::ThrowsMessage<ConnectionError>("the connection is closed"));
    EXPECT_THROW(sending.Open(item.GetHandle()).SetRaw("k", std::string(8U << 20, 'x')), TimeoutError);
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    close(accept(listener, nullptr, nullptr));
    EXPECT_NO_THROW(waiting.get()) << "a place in the queue is taken when there is one";
    close(listener);
}

class AClientOfTheService : public ServiceTest::AService {
protected:
    auto Creates(Connection& connection) const {
        ItemDescription item{Handle("app", "net")};
        item.path = Writes("net.json", R"({"hostname": "device", "mtu": 1500})");
        return connection.Create(item);
    }
};

TEST_F(AClientOfTheService, CarriesTheLongestQueryAndALargeFragment) {
    Connection connection;
    auto item = Creates(connection);
    EXPECT_EQ(item.GetInt("mtu"), 1500);
    EXPECT_THROW(item.GetBool("hostname"), ValueError);
    const std::string longest(12287 - std::string("mtu|1,hostname|").size(), 'v');
    item.SetMany({{"mtu", "1"}, {"hostname", longest}});
    EXPECT_THAT(item.GetMany({"mtu", "hostname"}), ElementsAre("1", longest));
    const std::string large(5U << 20, 'r');
    item.SetRaw("hostname", large);
    EXPECT_EQ(item.Get("hostname"), large);
}

// What the page shows is what the library sends and understands, and what the service answers.
TEST(TheProtocolPage, ShowsAnExchangeOfTheClientLibrary) {
    const std::string reply = BytesOfDump("docs/protocol.md", "hex reply");
    const RootDirectory root;
    const ScriptedPeer service(root.Of("storage.paas.orb"), [&](const Reply&) { return reply; });
    Connection connection;
    EXPECT_THAT(connection.Open(Handle("app", "net")).GetMany({"hostname", "mtu"}),
                ElementsAre("device", "1500"));
    EXPECT_EQ(Support::FrameBytes(service.Requests().at(0)), BytesOfDump("docs/protocol.md", "hex request"));
}

TEST_F(AClientOfTheService, GetsTheReplyOfTheProtocolPage) {
    Connection connection;
    Creates(connection).Release();
    ASSERT_TRUE(m_client.Sends(BytesOfDump("docs/protocol.md", "hex request")));
    const std::optional<Reply> reply = m_client.Receives();
    ASSERT_TRUE(reply);
    EXPECT_EQ(Support::FrameBytes(*reply), BytesOfDump("docs/protocol.md", "hex reply"));
}

} // namespace
} // namespace appcfg
