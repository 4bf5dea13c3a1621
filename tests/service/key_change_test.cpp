#include <atomic>
#include <thread>

#include "app_cfg_delay_strategy.h"
#include "app_cfg_timing_strategy.h"
#include "item_encryption.h"
#include "service_fixture.h"

namespace ServiceTest {

constexpr char XML_TEXT[] = "<c><a>1</a></c>";
constexpr char XML_DEFAULT[] = "<c><a>default</a></c>";

// An XML item with a default and a backup, saved at once.
class AKeyChange : public AService {
protected:
    void HasXml(ConfigBackupStrategy backup = ConfigBackupStrategy::INSTANT) {
        Writes("cfg", XML_TEXT);
        Writes("def", XML_DEFAULT);
        AppCfgCreateReq item = Item();
        item.storageType = ConfigStorageType::XML;
        item.backupStrategy = backup;
        ASSERT_EQ(m_client.Creates(item), 200);
        m_log.Clear();
    }
    static uint16_t Rekeys(Client& client, const std::string& key) {
        AppCfgCryptoUpdateReq request{client.m_handle, {}, {}};
        EncryptWith(request, key);
        return client.Asks(APP_CFG_URI_CRYPTO_PARAM, APP_CFG_METHOD_SET, BytesOf(request)).header.status;
    }
    // What a file holds in this key, its layout apart.
    std::string Value(const std::string& name, const std::string& key) const {
        const std::string text = key.empty() ? Text(name) : Decrypted(Path(name), key);
        const size_t at = text.find("<a>");
        return at == std::string::npos ? "(unreadable)" : text.substr(at + 3, text.find("</a>") - at - 3);
    }
    void ExpectFiles(const std::string& key, const std::string& value) const {
        EXPECT_EQ(Value("cfg", key), value);
        EXPECT_EQ(Value("bak", key), value);
        EXPECT_EQ(Value("def", key), "default");
    }
};

TEST_F(AKeyChange, RewritesDefaultFileAndBackup) {
    HasXml();
    ASSERT_EQ(Rekeys(m_client, "one"), 200);
    ExpectFiles("one", "1");
    EXPECT_EQ(Value("cfg", ""), "(unreadable)");
    EXPECT_EQ(m_client.Value("a"), "1"); // whose reply comes after the last line
    EXPECT_THAT(
        m_log.Of({"crypto", "file"}),
        ElementsAre("1 update crypto param begin...", "1 create new crypto mgr start...",
                    "1 create new crypto mgr done.", "1 default file exist.need to update default file.",
                    "1 update default file start...", "1 default file update done.",
                    "1 cfg file update start...", "1 cfg file update done.", "1 backup file update start...",
                    "1 backup file update done.", "1 update crypto param end."));
    EXPECT_EQ(m_client.Sets("a|2"), 200);
    ASSERT_EQ(Rekeys(m_client, "two"), 200);
    ExpectFiles("two", "2");
    EXPECT_EQ(Value("def", "one"), "(unreadable)");
    EXPECT_EQ(m_client.Restores(), 200);
    EXPECT_EQ(m_client.Value("a"), "default");
    ASSERT_EQ(Rekeys(m_client, ""), 200);
    ExpectFiles("", "default");
}

TEST_F(AKeyChange, OfAnUnknownItemOrTypeTouchesNothing) {
    HasXml();
    AppCfgCryptoUpdateReq request{m_client.m_handle, static_cast<ConfigCryptoType>(2), Parameters("one")};
    const auto asks = [&] {
        return m_client.Asks(APP_CFG_URI_CRYPTO_PARAM, APP_CFG_METHOD_SET, BytesOf(request)).header.status;
    };
    EXPECT_EQ(asks(), 403);
    EXPECT_THAT(m_log.Errors(), ElementsAre("3 not support crypto mgr[2]",
                                            "3 connect fd[N] : invalid crypto type[2] or param."));
    request.hndl = Handle("nobody", "here");
    request.cryptoType = ConfigCryptoType::AES_256_CBC;
    EXPECT_EQ(asks(), 404);
    EXPECT_EQ(m_client.Asks(APP_CFG_URI_CRYPTO_PARAM, APP_CFG_METHOD_SET, std::string(71, 'x')).header.status,
              400);
    EXPECT_EQ(Text("cfg"), XML_TEXT);
    EXPECT_EQ(Text("def"), XML_DEFAULT);
}

TEST_F(AKeyChange, WithoutParametersMeansPlain) {
    HasXml();
    ASSERT_EQ(Rekeys(m_client, "one"), 200);
    const std::string handle = BytesOf(m_client.m_handle);
    EXPECT_EQ(m_client.Asks(APP_CFG_URI_CRYPTO_PARAM, APP_CFG_METHOD_SET, handle).header.status, 200);
    ExpectFiles("", "1");
}

TEST_F(AKeyChange, LeavesTheCopiesOfAnItemWithoutBackupStrategy) {
    HasXml(ConfigBackupStrategy::NONE);
    ASSERT_EQ(Rekeys(m_client, "one"), 200);
    EXPECT_EQ(Value("cfg", "one"), "1");
    EXPECT_EQ(Text("bak"), XML_TEXT);
    EXPECT_EQ(Text("def"), XML_DEFAULT);
}

TEST_F(AKeyChange, ThatCannotReadTheDefaultLeavesTheFilesAlone) {
    HasXml();
    ASSERT_EQ(Rekeys(m_client, "one"), 200);
    const std::string cfg = Text("cfg");
    std::filesystem::remove(Path("def"));
    EXPECT_EQ(Rekeys(m_client, "two"), 400);
    EXPECT_EQ(Text("cfg"), cfg);
    EXPECT_EQ(m_client.Sets("a|3"), 200);
    ASSERT_EQ(m_client.Deletes(), 200);
    EXPECT_EQ(Value("cfg", "one"), "3");
}

// Its clone reads the default as plain text, which it is the first time only.
TEST_F(AKeyChange, OfAJsonItemWithADefaultWorksOnce) {
    Writes("def", R"({"a": "default"})");
    HasItem(R"({"a": 1})");
    EXPECT_EQ(Rekeys(m_client, "one"), 200);
    EXPECT_EQ(Decrypted(Path("def"), "one"), "{\n  \"a\": \"default\"\n}");
    EXPECT_EQ(Rekeys(m_client, "two"), 400);
    EXPECT_EQ(m_client.Value("a"), "1");
}

TEST_F(AKeyChange, GoesOnWhileClientsSetValues) {
    HasXml();
    std::atomic<bool> done{false};
    std::atomic<int> last{0};
    std::thread setter([&] {
        Client other;
        for (int value = 1; !done || value < 50; ++value) {
            EXPECT_EQ(other.Sets("a|" + std::to_string(value)), 200);
            last = value;
        }
    });
    const std::string keys[] = {"one", "two", "", "three"};
    for (int round = 0; round < 24; ++round) {
        EXPECT_EQ(Rekeys(m_client, keys[round % 4]), 200);
    }
    done = true;
    setter.join();
    ASSERT_EQ(m_client.Deletes(), 200);
    ExpectFiles("three", std::to_string(last));
}

// Beside the item's own instant strategies one that delays and one that never rests, so that every thread an
// item can have is at work at once.
TEST_F(AKeyChange, GoesOnWhileEverythingElseHappens) {
    HasXml();
    const std::shared_ptr<AppCfgMgr> manager =
        AppCfgMgmtServer::m_appCfgMgmtItemMap.at("app1.net.0").appCfgMgr;
    AppCfgDelayStrategy delay(*manager, AppCfgStrategy::SAVE, std::chrono::milliseconds(2));
    AppCfgTimingStrategy timing(*manager, AppCfgStrategy::BACKUP, std::chrono::seconds(0));
    delay.Start();
    timing.Start();
    std::atomic<bool> done{false};
    const auto repeats = [&](auto request) {
        return std::thread([&done, request] {
            Client other;
            for (int value = 1; !done || value < 20; ++value) {
                EXPECT_EQ(request(other, std::to_string(value)), 200);
            }
        });
    };
    std::thread clients[] = {
        repeats([](Client& client, const std::string& value) { return client.Sets("a|" + value); }),
        repeats([](Client& client, const std::string& value) {
            return client.SetsRaw("", "<a>" + value + "</a>");
        }),
        repeats([](Client& client, const std::string&) { return client.GetsRaw("c").header.status; }),
        repeats([](Client& client, const std::string&) { return client.Restores(); }),
    };
    const std::string keys[] = {"one", "two", "", "three"};
    for (int round = 0; round < 24; ++round) {
        EXPECT_EQ(Rekeys(m_client, keys[round % 4]), 200);
    }
    done = true;
    for (std::thread& client : clients) {
        client.join();
    }
    timing.Stop();
    delay.Stop();
    EXPECT_EQ(m_client.Sets("a|last"), 200);
    ASSERT_EQ(m_client.Deletes(), 200);
    ExpectFiles("three", "last");
    EXPECT_THAT(m_log.Errors(), IsEmpty());
}

} // namespace ServiceTest
