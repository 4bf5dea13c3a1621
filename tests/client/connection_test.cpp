#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "app_cfg_wire.h"
#include "appcfg/connection.h"
#include "appcfg/error.h"
#include "fake_service.h"
#include "scratch_root.h"

namespace appcfg {
namespace {

using namespace SystemServer;
using test::Bytes;
using test::FakeService;
using test::ReplyTo;
using test::ScratchRoot;
using test::ToBytes;
using test::ValuesPayload;
using test::WordAt;

constexpr size_t PAYLOAD_AT = 24;

Bytes AlwaysDone(const Bytes& request) {
    return ReplyTo(request, 200);
}

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

class AClient : public testing::Test {
protected:
    // The record of a request frame.
    template <class Record>
    static Record RecordOf(const Bytes& frame) {
        EXPECT_GE(frame.size(), PAYLOAD_AT + sizeof(Record));
        Record record{};
        std::memcpy(&record, frame.data() + PAYLOAD_AT, std::min(sizeof(record), frame.size() - PAYLOAD_AT));
        return record;
    }

    static void ExpectHeader(const Bytes& frame, uint8_t method, uint8_t uri, size_t payload) {
        EXPECT_EQ(frame.size(), PAYLOAD_AT + payload);
        EXPECT_EQ(WordAt(frame, 0), 0x00004E54U | static_cast<uint32_t>(method) << 24);
        EXPECT_EQ(WordAt(frame, 4), uri);
        EXPECT_EQ(WordAt(frame, 12), payload + 8);
    }

    ScratchRoot m_root;
};

TEST_F(AClient, CreatesAnItemWithEveryFieldInItsPlace) {
    FakeService service(m_root.Path(), AlwaysDone);
    Connection connection;
    ItemDescription described = Described();
    described.encryption = CountingKey();
    connection.Create(described).Release();

    const Bytes frame = service.Requests().at(0);
    ExpectHeader(frame, 1, 0, 904);
    const auto record = RecordOf<AppCfgCreateReq>(frame);
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

TEST_F(AClient, SendsTheWholeRecordOfAKeyChangeAlsoForPlainFiles) {
    FakeService service(m_root.Path(), AlwaysDone);
    Connection connection;
    Item item = connection.Open(Handle("app", "net"));
    item.ChangeKey(CountingKey());
    item.ChangeToPlain();

    const auto frames = service.Requests();
    ExpectHeader(frames.at(0), 3, 4, 124);
    ExpectHeader(frames.at(1), 3, 4, 124);
    const auto encrypted = RecordOf<AppCfgCryptoUpdateReq>(frames[0]);
    EXPECT_EQ(encrypted.cryptoType, ConfigCryptoType::AES_256_CBC);
    EXPECT_EQ(encrypted.cryptoParam.key[31], 31);
    const auto plain = RecordOf<AppCfgCryptoUpdateReq>(frames[1]);
    EXPECT_EQ(plain.cryptoType, ConfigCryptoType::NONE);
    EXPECT_EQ(plain.cryptoParam.key[31], 0);
}

TEST_F(AClient, PutsRawDataWithItsNulBehindTheRecord) {
    FakeService service(m_root.Path(), AlwaysDone);
    Connection connection;
    connection.Open(Handle("app", "net")).SetRaw("k", "hello");

    const Bytes frame = service.Requests().at(0);
    ExpectHeader(frame, 3, 2, 204 + 6);
    const auto record = RecordOf<AppCfgRawDataReq>(frame);
    EXPECT_STREQ(record.query, "k");
    EXPECT_EQ(record.dataLen, 6U);
    EXPECT_EQ(Bytes(frame.end() - 6, frame.end()), ToBytes(std::string("hello\0", 6)));
}

TEST_F(AClient, ReadsTypedValuesInOneRequest) {
    FakeService service(m_root.Path(), [](const Bytes& request) {
        const std::string query(reinterpret_cast<const char*>(request.data()) + PAYLOAD_AT + 72);
        return ReplyTo(request, 200,
                       ValuesPayload(query == "n" ? std::vector<std::string>{"-42"}
                                                  : std::vector<std::string>{query, "x"}));
    });
    Connection connection;
    const Item item = connection.Open(Handle("app", "net"));
    EXPECT_EQ(item.GetInt("n"), -42);
    EXPECT_THROW(item.GetBool("n"), ValueError);
    EXPECT_THAT(item.GetMany({"a", "b"}), testing::ElementsAre("a,b", "x"));
    ExpectHeader(service.Requests().at(0), 2, 1, 12360);
}

TEST_F(AClient, LearnsWhichRequestWasRefusedAndWhy) {
    FakeService service(m_root.Path(), [](const Bytes& request) { return ReplyTo(request, 404); });
    Connection connection;
    Item item = connection.Open(Handle("app", "net"));
    try {
        item.GetRaw("k");
        FAIL();
    } catch (const RequestRefused& refused) {
        EXPECT_EQ(refused.Status(), 404);
        EXPECT_EQ(refused.GetRequest(), Request::RAW_GET);
        EXPECT_THAT(refused.what(), testing::HasSubstr("raw get app/net/0: status 404"));
        EXPECT_THAT(refused.what(), testing::HasSubstr("no such key"));
    }
    EXPECT_THROW(item.Restore(), RequestRefused) << "the connection stays usable";
}

TEST_F(AClient, SendsNothingThatDoesNotFit) {
    FakeService service(m_root.Path(), AlwaysDone);
    Connection connection;
    Item item = connection.Open(Handle("app", "net"));
    EXPECT_THROW(item.GetRaw(std::string(128, 'k')), InvalidArgument);
    EXPECT_THROW(item.SetRaw("k", std::string("a\0b", 3)), InvalidArgument);
    EXPECT_THROW(item.SetRaw("k", std::string((16U << 20) - 204, 'x')), InvalidArgument);
    ItemDescription tooLong = Described();
    tooLong.backupPath = std::string(256, 'p');
    EXPECT_THROW(connection.Create(tooLong), InvalidArgument);
    ItemDescription without = Described();
    without.path.clear();
    EXPECT_THROW(connection.Create(without), InvalidArgument);
    item.GetHandle();
    EXPECT_TRUE(service.Requests().empty());
    item.SetRaw(std::string(127, 'k'), "");
    EXPECT_EQ(service.Requests().size(), 1U);
}

TEST_F(AClient, DeletesWhatItOwnsOnceAndNothingElse) {
    FakeService service(m_root.Path(), AlwaysDone);
    const auto deletes = [&] {
        size_t count = 0;
        for (const Bytes& frame : service.Requests()) {
            count += frame[3] == 4;
        }
        return count;
    };
    Connection connection;
    {
        Item owned = connection.Create(Described());
        Item moved = std::move(owned);
        Item other = connection.Open(Handle("app", "other"));
        connection.Create(Described()).Release();
    }
    EXPECT_EQ(deletes(), 1U);
    connection.Create(Described()).Delete();
    EXPECT_EQ(deletes(), 2U);
    Item assigned = connection.Create(Described());
    assigned = connection.Open(Handle("app", "other"));
    EXPECT_EQ(deletes(), 3U);
}

TEST_F(AClient, FailsOnItemsOfAConnectionThatIsClosedAndLetsThemGoQuietly) {
    FakeService service(m_root.Path(), AlwaysDone);
    Connection connection;
    Item item = connection.Create(Described());
    Connection moved = std::move(connection);
    EXPECT_NO_THROW(item.Restore()) << "items follow a connection that is moved";
    moved.Close();
    EXPECT_THROW(item.Restore(), ConnectionError);
    EXPECT_THROW(moved.Create(Described()), ConnectionError);
}

// Every reply that is not the answer to the request ends the connection; none is taken for an answer.
TEST_F(AClient, TrustsNoReplyThatIsNotTheAnswer) {
    const auto changed = [](size_t at, uint8_t mask) {
        return [at, mask](const Bytes& request) {
            Bytes reply = ReplyTo(request, 200, ValuesPayload({"v"}));
            reply[at] ^= mask;
            return reply;
        };
    };
    const std::pair<const char*, FakeService::Script> hostile[] = {
        {"another magic", changed(0, 0xFF)},
        {"no reply bit", changed(3, 0x80)},
        {"another method", changed(3, 0x01)},
        {"another uri", changed(4, 0x01)},
        {"another sequence", changed(8, 0xFF)},
        {"a length below the least", changed(12, static_cast<uint8_t>(8 + 4 + 4 + 1))},
        {"a length beyond the greatest", changed(15, 0x7F)},
        {"more values than keys", changed(24, 0x02)},
        {"a value beyond the end", changed(31, 0xFF)},
        {"no content", [](const Bytes& request) { return ReplyTo(request, 200); }},
        {"half a header",
         [](const Bytes&) {
             return Bytes{0x54, 0x4E, 0};
         }},
        {"nothing", [](const Bytes&) { return Bytes(); }},
    };
    for (const auto& [what, script] : hostile) {
        FakeService service(m_root.Path(), script);
        Connection connection;
        Item item = connection.Open(Handle("app", "net"));
        EXPECT_THROW(item.Get("k"), ConnectionError) << what;
        EXPECT_THROW(item.Get("k"), ConnectionError) << what;
        EXPECT_EQ(service.Requests().size(), 1U) << what;
        std::filesystem::remove(m_root.Path() + "/storage.paas.orb");
    }
}

} // namespace
} // namespace appcfg
