#include <atomic>
#include <thread>

#include "app_cfg_delay_strategy.h"
#include "app_cfg_timing_strategy.h"
#include "support/item_encryption.h"
#include "support/service_fixture.h"

namespace ServiceTest {

constexpr char XML_TEXT[] = "<c><a>1</a></c>";
constexpr char XML_DEFAULT[] = "<c><a>default</a></c>";

// An XML item with a default and a backup, saved at once.
class AKeyChange : public AService {
protected:
    void HasXml() {
        Writes("cfg", XML_TEXT);
        Writes("def", XML_DEFAULT);
        AppCfgCreateReq item = Item();
        item.storageType = ConfigStorageType::XML;
        ASSERT_EQ(m_client.Creates(item), 200);
        m_log.Clear();
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

TEST_F(AKeyChange, OfAnUnknownItemOrTypeTouchesNothing) {
    HasXml();
    AppCfgCryptoUpdateReq request{m_client.m_handle, static_cast<ConfigCryptoType>(2), Parameters("one")};
    const auto asks = [&](const std::string& record) {
        return m_client.Asks(APP_CFG_URI_CRYPTO_PARAM, APP_CFG_METHOD_SET, record).header.status;
    };
    EXPECT_EQ(asks(BytesOf(request)), 403);
    request.hndl = Handle("nobody", "here");
    request.cryptoType = ConfigCryptoType::AES_256_CBC;
    EXPECT_EQ(asks(BytesOf(request)), 404);
    EXPECT_EQ(asks(std::string(71, 'x')), 400);
    EXPECT_EQ(Text("cfg"), XML_TEXT);
    EXPECT_EQ(Text("def"), XML_DEFAULT);
    ASSERT_EQ(m_client.Rekeys("one"), 200);
    ExpectFiles("one", "1");
    EXPECT_EQ(asks(BytesOf(m_client.m_handle)), 200) << "without parameters: plain";
    ExpectFiles("", "1");
}

// Between two uses the library gives up what it holds, while another thread may be about to use it.
TEST_F(AKeyChange, MeetsOtherThreadsThatEncrypt) {
    const auto encrypts = [this] {
        std::string cipher;
        AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(ConfigCryptoType::AES_256_CBC, Path(""),
                                                      Parameters("k"))
            ->Encrypt("some text", cipher);
        return cipher;
    };
    const std::string expected = encrypts();
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                right += encrypts() == expected ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 2000);
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
        EXPECT_EQ(m_client.Rekeys(keys[round % 4]), 200);
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
