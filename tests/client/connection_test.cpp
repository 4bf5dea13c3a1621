#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <future>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "app_cfg_wire.h"
#include "appcfg/connection.h"
#include "appcfg/error.h"
#include "support/root_directory.h"
#include "support/scripted_peer.h"

namespace appcfg {
namespace {

using namespace SystemServer;
using namespace std::chrono_literals;
using Support::Reply;
using Support::ReplyTo;
using Support::RootDirectory;
using Support::ScriptedPeer;
using Support::ValuesPayload;

ItemDescription Described() {
    ItemDescription item{Handle("app", "net", 7)};
    item.storage = ConfigStorageType::XML;
    item.path = "${default_setting_path}net.xml";
    item.backupPath = "/b";
    item.defaultPath = "/d";
    item.saveStrategy = ConfigSaveStrategy::DELAY;
    item.backupStrategy = ConfigBackupStrategy::TIMING;
    return item;
}

EncryptionKey CountingKey() {
    EncryptionKey key;
    for (size_t i = 0; i < key.key.size(); ++i) {
        key.key[i] = static_cast<uint8_t>(i);
    }
    key.iv.fill(0xEE);
    return key;
}

// A client of a service that does all that it is asked to.
class AClient : public testing::Test {
protected:
    // The record of the first request.
    template <class Record>
    Record Sent(uint8_t method, uint8_t uri, size_t payload) const {
        const Reply frame = m_service.Requests().at(0);
        EXPECT_EQ(frame.header.magic, 0x4E54);
        EXPECT_EQ(frame.header.kind, 0);
        EXPECT_EQ(frame.header.method, method);
        EXPECT_EQ(frame.header.uri, uri);
        EXPECT_EQ(frame.header.status, 0);
        EXPECT_EQ(frame.payload.size(), payload);
        Record record{};
        std::memcpy(&record, frame.payload.data(), std::min(sizeof(record), frame.payload.size()));
        return record;
    }

    size_t Deletes() const {
        const auto frames = m_service.Requests();
        return static_cast<size_t>(std::count_if(
            frames.begin(), frames.end(), [](const Reply& frame) { return frame.header.method == 4; }));
    }

    RootDirectory m_root;
    ScriptedPeer m_service{m_root.Of("storage.paas.orb"),
                           [](const Reply& request) { return ReplyTo(request, 200); }};
    Connection m_connection;
    Item m_item = m_connection.Open(Handle("app", "net"));
};

TEST_F(AClient, CreatesAnItemWithEveryFieldInItsPlace) {
    ItemDescription described = Described();
    described.encryption = CountingKey();
    m_connection.Create(described).Release();

    const auto record = Sent<AppCfgCreateReq>(1, 0, 904);
    EXPECT_STREQ(record.hndl.ownerName, "app");
    EXPECT_STREQ(record.hndl.cfgName, "net");
    EXPECT_EQ(record.hndl.cfgIndex, 7U);
    EXPECT_EQ(record.storageType, ConfigStorageType::XML);
    EXPECT_EQ(record.cryptoType, ConfigCryptoType::AES_256_CBC);
    EXPECT_EQ(record.saveStrategy, ConfigSaveStrategy::DELAY);
    EXPECT_EQ(record.backupStrategy, ConfigBackupStrategy::TIMING);
    EXPECT_STREQ(record.cfgPath, "${default_setting_path}net.xml");
    EXPECT_STREQ(record.backupPath, "/b");
    EXPECT_STREQ(record.defaultPath, "/d");
    EXPECT_EQ(record.cryptoParam.key[31], 31);
    EXPECT_EQ(record.cryptoParam.iv[15], 0xEE);
}

TEST_F(AClient, SendsNothingThatDoesNotFit) {
    EXPECT_THROW(m_item.GetRaw(std::string(128, 'k')), InvalidArgument);
    EXPECT_THROW(m_item.SetRaw("k", std::string("a\0b", 3)), InvalidArgument);
    EXPECT_THROW(m_item.SetRaw("k", std::string((16U << 20) - 204, 'x')), InvalidArgument);
    ItemDescription tooLong = Described();
    tooLong.backupPath = std::string(256, 'p');
    EXPECT_THROW(m_connection.Create(tooLong), InvalidArgument);
    ItemDescription without = Described();
    without.path.clear();
    EXPECT_THROW(m_connection.Create(without), InvalidArgument);
    EXPECT_TRUE(m_service.Requests().empty());
    m_item.SetRaw(std::string(127, 'k'), "");
    EXPECT_EQ(m_service.Requests().size(), 1U);
}

TEST_F(AClient, DeletesWhatItOwnsOnceAndNothingElse) {
    {
        m_connection.Create(Described()).Release();
        Item owned = m_connection.Create(Described());
        Item moved = std::move(owned);
        Item other = m_connection.Open(Handle("app", "other"));
    }
    EXPECT_EQ(Deletes(), 1U);
    m_connection.Create(Described()).Delete();
    EXPECT_EQ(Deletes(), 2U);
    Item assigned = m_connection.Create(Described());
    assigned = m_connection.Open(Handle("app", "other"));
    EXPECT_EQ(Deletes(), 3U);
    assigned = m_connection.Create(Described());
    assigned = m_connection.Create(Described());
    EXPECT_EQ(Deletes(), 3U) << "the older object ends nothing of the newer one";
    m_connection.Open(Described().handle).Delete();
    assigned = m_connection.Open(Handle("app", "other"));
    EXPECT_EQ(Deletes(), 4U) << "deleted by another object";
}

TEST_F(AClient, FailsOnItemsOfAConnectionThatIsClosedAndLetsThemGoQuietly) {
    Item item = m_connection.Create(Described());
    Connection moved = std::move(m_connection);
    EXPECT_NO_THROW(item.Restore()) << "items follow a connection that is moved";
    moved.Close();
    EXPECT_THROW(item.Restore(), ConnectionError);
    EXPECT_THROW(moved.Create(Described()), ConnectionError);
}

TEST(AnAnswer, HasTypedValuesOfOneRequest) {
    const RootDirectory root;
    const ScriptedPeer service(root.Of("storage.paas.orb"), [](const Reply& request) {
        const std::string query(request.payload.c_str() + 72);
        const auto values = query == "n" ? std::vector<std::string>{"-42"} : std::vector{query, query};
        return ReplyTo(request, request.payload.size() == 12360 ? 200 : 500, ValuesPayload(values));
    });
    Connection connection;
    const Item item = connection.Open(Handle("app", "net"));
    EXPECT_EQ(item.GetInt("n"), -42);
    EXPECT_THROW(item.GetBool("n"), ValueError);
    EXPECT_THAT(item.GetMany({"a", "b"}), testing::ElementsAre("a,b", "a,b"));
}

// Every reply that is not the answer to the request ends the connection; none is taken for an answer.
TEST(AnAnswer, IsNoOtherReply) {
    const auto changed = [](size_t at, int mask) {
        return [at, mask](const Reply& request) {
            std::string reply = ReplyTo(request, 200, ValuesPayload({"v"}));
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
        {"a length below the least", changed(12, 8 + 4 + 4 + 1)},
        {"a length beyond the greatest", changed(15, 0x7F)},
        {"more values than keys", changed(24, 0x02)},
        {"a value beyond the end", changed(31, 0xFF)},
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

} // namespace
} // namespace appcfg
