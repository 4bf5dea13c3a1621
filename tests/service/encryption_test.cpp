#include <Poco/Exception.h>

#include <atomic>
#include <cstdio>
#include <iterator>

#include "app_cfg_crypto_mgr_factory.h"
#include "service_fixture.h"

namespace ServiceTest {

// A key and an IV with zero bytes inside and at their ends.
AppCfgCryptoParam Param(uint8_t last = 0) {
    AppCfgCryptoParam param{};
    for (uint8_t i = 0; i < 30; ++i) {
        param.key[i] = static_cast<uint8_t>(i % 7);
    }
    param.iv[3] = 0xFF;
    param.key[31] = last;
    return param;
}

std::string Hex(const uint8_t* bytes, size_t size) {
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

// What another implementation makes of the file.
std::string Decrypts(const std::string& path, const AppCfgCryptoParam& param) {
    const std::string command = "openssl enc -d -aes-256-cbc -K " + Hex(param.key, sizeof param.key) +
                                " -iv " + Hex(param.iv, sizeof param.iv) + " -in " + path + " 2>&1";
    FILE* const pipe = popen(command.c_str(), "re");
    std::string output;
    for (int byte = 0; (byte = std::fgetc(pipe)) != EOF;) {
        output += static_cast<char>(byte);
    }
    pclose(pipe);
    return output;
}

class AnEncryption : public AService {
protected:
    std::shared_ptr<AppCfgCryptoMgr> Makes(uint8_t last = 0) const {
        return AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(ConfigCryptoType::AES_256_CBC, Path("cipher"),
                                                             Param(last));
    }
    static std::string Reads(AppCfgCryptoMgr& manager) {
        const std::shared_ptr<std::istream> stream = manager.GetDecryptStream();
        return std::string(std::istreambuf_iterator<char>(*stream), {});
    }
    AppCfgCreateReq EncryptedItem() const {
        AppCfgCreateReq item = Item();
        item.cryptoType = ConfigCryptoType::AES_256_CBC;
        item.cryptoParam = Param();
        return item;
    }
};

TEST_F(AnEncryption, GivesEveryTextBack) {
    const auto manager = Makes();
    for (const size_t size : {size_t{0}, size_t{1}, size_t{15}, size_t{16}, size_t{17}, size_t{1000003}}) {
        const std::string plain(size, '\x7F');
        std::string cipher = "what stood there";
        manager->Encrypt(plain, cipher);
        EXPECT_EQ(cipher.size(), 16 * (size / 16 + 1));
        Writes("cipher", cipher);
        EXPECT_EQ(Reads(*manager), plain);
        EXPECT_EQ(Reads(*manager->Clone()), plain);
    }
}

TEST_F(AnEncryption, UsesKeyAndIvInFullAndNothingElse) {
    std::string cipher;
    Makes()->Encrypt("some text", cipher);
    Writes("cipher", cipher);
    EXPECT_EQ(Decrypts(Path("cipher"), Param()), "some text");
    std::string ofOtherKey; // which differs after its zero bytes alone
    Makes(1)->Encrypt("some text", ofOtherKey);
    EXPECT_NE(ofOtherKey, cipher);
}

// Between two uses the library gives up what it holds, while another thread may be about to use it.
TEST_F(AnEncryption, ServesThreadsAtOnce) {
    std::string expected;
    Makes()->Encrypt("some text", expected);
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                std::string cipher;
                Makes()->Encrypt("some text", cipher);
                right += cipher == expected ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 2000);
}

TEST_F(AnEncryption, ThrowsForWhatItCannotDecrypt) {
    std::string cipher;
    Makes()->Encrypt("some text that is longer than a block", cipher);
    for (const std::string& text : {std::string(), std::string(R"({"a":"1"})"), cipher.substr(0, 20)}) {
        Writes("cipher", text);
        EXPECT_THROW(Reads(*Makes()), Poco::Exception) << text.size();
    }
    Writes("cipher", cipher);
    EXPECT_THROW(Reads(*Makes(1)), Poco::Exception); // another key
    std::filesystem::remove(Path("cipher"));
    EXPECT_THROW(Reads(*Makes()), Poco::Exception);
}

TEST_F(AnEncryption, OfAnItemCoversFileAndBackupOnceSaved) {
    Writes("cfg", R"({"a":"1"})");
    EXPECT_EQ(m_client.Creates(EncryptedItem()), 200);
    EXPECT_EQ(m_client.SetsRaw("a", "secret"), 200);
    for (const char* name : {"cfg", "bak"}) {
        EXPECT_EQ(Text(name).size(), 32U) << name;
        EXPECT_EQ(Decrypts(Path(name), Param()), "{\n  \"a\": \"secret\"\n}");
    }
    EXPECT_EQ(m_client.Value("a"), "secret");
}

// The file is read as plain JSON at creation, decrypted when it is restored.
TEST_F(AnEncryption, OfAJsonItemIsReadByARestoreAlone) {
    Writes("cfg", R"({"a":"1"})");
    AppCfgCreateReq item = EncryptedItem();
    Put(item.defaultPath, "");
    EXPECT_EQ(m_client.Creates(item), 200);
    EXPECT_EQ(m_client.SetsRaw("a", "secret"), 200);
    EXPECT_EQ(m_client.Restores(), 200);
    EXPECT_THAT(m_log.Errors(), IsEmpty());
    EXPECT_EQ(m_client.Value("a"), "secret");
    EXPECT_EQ(m_client.Creates(item), 403);
    Writes("def", R"({"a":"def"})");
    EXPECT_EQ(m_client.Creates(EncryptedItem()), 200);
    EXPECT_EQ(m_client.Value("a"), "def");
}

} // namespace ServiceTest
