#include <array>

#include "app_cfg_limits.h"
#include "support/service_calls.h"
#include "support/service_fixture.h"

namespace ServiceTest {

using ACreation = AService;

// One value per source, so that a file tells where it came from.
constexpr char FROM_CFG[] = R"({"from":"cfg"})";
constexpr char FROM_BAK[] = R"({"from":"bak"})";
constexpr char FROM_DEF[] = R"({"from":"def"})";
constexpr char BROKEN[] = R"({"from":)";
constexpr char ARRAY[] = R"(["from"])";
constexpr const char* NONE = nullptr;

struct Recovery {
    const char* claim;
    const char* cfg; // the files before: their text, or none
    const char* bak;
    const char* def;
    uint16_t status;
    const char* cfgAfter;
    const char* bakAfter;
};

TEST_F(ACreation, RecoversFromBackupOrDefault) {
    const char* const C = FROM_CFG;
    const char* const B = FROM_BAK;
    const char* const D = FROM_DEF;
    const char* const X = BROKEN;
    const Recovery recoveries[] = {
        {"a good file is taken as it is", C, B, D, 200, C, B},
        {"the first backup is a copy of the file", C, NONE, D, 200, C, C},
        {"the backup comes before the default", NONE, B, D, 200, B, B},
        {"the default becomes the backup too", NONE, NONE, D, 200, D, D},
        {"nothing to recover from", NONE, NONE, NONE, 404, NONE, NONE},
        {"a broken file is replaced by its backup", X, B, D, 200, B, B},
        {"a broken backup leads to the default and stays", X, X, D, 200, D, X},
        {"a root that is no object is broken too", ARRAY, B, NONE, 200, B, B},
        {"an empty file is broken too", "", B, NONE, 200, B, B},
        {"a broken file makes its own first backup", X, NONE, NONE, 403, X, X},
        {"a missing file gets a broken backup first", NONE, X, D, 200, D, X},
        {"all broken", X, X, ARRAY, 403, ARRAY, X},
    };
    const auto lay = [&](const char* name, const char* text) {
        std::filesystem::remove(Path(name));
        if (text != NONE) {
            Writes(name, text);
        }
    };
    const auto expected = [](const char* text) { return std::string(text == NONE ? "(missing)" : text); };
    for (const Recovery& entry : recoveries) {
        SCOPED_TRACE(entry.claim);
        lay("cfg", entry.cfg);
        lay("bak", entry.bak);
        lay("def", entry.def);
        m_log.Clear();
        EXPECT_EQ(m_client.Creates(Item()), entry.status);
        const bool isFromDefault = entry.cfgAfter == D && entry.cfg != D;
        EXPECT_EQ(m_log.Of({"was taken from default"}, 3).size(), isFromDefault ? 1U : 0U);
        EXPECT_EQ(Text("cfg"), expected(entry.cfgAfter));
        EXPECT_EQ(Text("bak"), expected(entry.bakAfter));
        EXPECT_EQ(Text("def"), expected(entry.def));
        EXPECT_EQ(m_client.Deletes(), entry.status == 200 ? 200 : 404);
    }
}

TEST_F(ACreation, WithoutAFileOrAFirstBackupIsRefused) {
    Writes("cfg", FROM_CFG);
    EXPECT_EQ(m_client.Creates(Item("", "", "")), 400);
    EXPECT_EQ(m_client.Creates(Item("", "bak", "def")), 400);
    EXPECT_EQ(m_client.Creates(Item("cfg", "nowhere/bak")), 400);
    EXPECT_EQ(Text("cfg"), FROM_CFG);
    EXPECT_EQ(RegisteredKeys(), Lines{});
}

TEST_F(ACreation, RefusesStorageAndCryptoTypesThatDoNotExist) {
    Writes("cfg", FROM_CFG);
    for (const int32_t type : {2, 4, -1}) {
        AppCfgCreateReq item = Item();
        item.storageType = static_cast<ConfigStorageType>(type);
        EXPECT_EQ(m_client.Creates(item), 403);
        item = Item();
        item.cryptoType = static_cast<ConfigCryptoType>(type);
        EXPECT_EQ(m_client.Creates(item), 403);
    }
    AppCfgCreateReq item = Item();
    std::memset(&item.cryptoParam, 0xA5, sizeof item.cryptoParam);
    EXPECT_EQ(m_client.Creates(item), 200);
    EXPECT_EQ(m_client.SetsRaw("from", "me"), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"from\": \"me\"\n}") << "a plain item reads no key";
}

// No text is refused by the path library of today; one of tomorrow may.
TEST_F(ACreation, RefusesPathsThatCannotBeParsedBeforeItTouchesAFile) {
    Writes("cfg", FROM_CFG);
    for (const int at : {1, 2}) {
        const Injection injection({Call::PARSE_PATH, at});
        EXPECT_EQ(m_client.Creates(Item()), 400);
    }
    EXPECT_EQ(Text("bak"), "(missing)");
}

TEST_F(ACreation, WithAKnownHandleReplacesTheItem) {
    HasItem(FROM_CFG);
    EXPECT_EQ(m_client.Sets("from|first"), 200);
    Client other;
    Writes("cfg2", FROM_DEF);
    EXPECT_EQ(other.Creates(Item("cfg2", "bak2")), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"from\": \"first\"\n}"); // what was acknowledged is not lost
    EXPECT_EQ(other.Value("from"), "def");
    EXPECT_EQ(other.SetsRaw("from", "second"), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"from\": \"first\"\n}");
    m_client.Close(); // the item is the other's now
    EXPECT_EQ(other.Value("from"), "second");
    EXPECT_EQ(other.Creates(Item("gone", "gone", "gone")), 404);
    EXPECT_EQ(other.Value("from"), "status 404") << "a replacement that fails leaves none";
}

TEST_F(ACreation, IsRefusedWhenThereAreTooManyItems) {
    Writes("cfg", FROM_CFG);
    AppCfgCreateReq item = Item("cfg", "", "");
    item.saveStrategy = ConfigSaveStrategy::NONE;
    item.backupStrategy = ConfigBackupStrategy::NONE;
    const auto creates = [&](Client& client, size_t index) {
        item.hndl = Handle("app1", "net", static_cast<uint32_t>(index));
        return client.Creates(item);
    };
    std::array<Client, MAX_ITEMS / MAX_ITEMS_PER_CONNECTION> clients;
    size_t created = 0;
    for (Client& client : clients) {
        for (size_t i = 0; i < MAX_ITEMS_PER_CONNECTION; ++i) {
            ASSERT_EQ(creates(client, created++), 200);
        }
        EXPECT_EQ(creates(client, MAX_ITEMS), 400);
        EXPECT_EQ(creates(client, created - 1), 200) << "a replacement takes no more room";
    }
    EXPECT_EQ(RegisteredKeys().size(), MAX_ITEMS);
    EXPECT_EQ(creates(m_client, MAX_ITEMS), 400);
    clients[0].Close();
    EXPECT_TRUE(Eventually([&] { return creates(m_client, MAX_ITEMS) == 200; }));
}

TEST_F(ACreation, ReadsFieldsUpToTheirEnds) {
    Writes("cfg", FROM_CFG);
    AppCfgCreateReq item = Item("cfg", "", "");
    std::memset(item.backupPath, 'b', sizeof item.backupPath);
    std::memset(item.defaultPath, 'd', sizeof item.defaultPath);
    EXPECT_EQ(m_client.Creates(item), 200); // no file name is that long, and none of them is needed
    EXPECT_EQ(m_log.Of({"backup path:", "default path:"}),
              (Lines{"1 backup path:" + std::string(256, 'b'), "1 default path:" + std::string(256, 'd')}));
}

} // namespace ServiceTest
