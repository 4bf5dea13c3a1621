#include <array>
#include <map>
#include <pthread.h>

#include "app_cfg_limits.h"
#include "faults.h"
#include "service_fixture.h"

namespace ServiceTest {

using ACreation = AService;

// One value per source, so that a file tells where it came from.
constexpr char FROM_CFG[] = R"({"from":"cfg"})";
constexpr char FROM_BAK[] = R"({"from":"bak"})";
constexpr char FROM_DEF[] = R"({"from":"def"})";
constexpr char BROKEN[] = R"({"from":)";
constexpr char ARRAY[] = R"(["from"])";
constexpr const char* NONE = nullptr;

TEST_F(ACreation, TellsEveryStep) {
    Writes("cfg", FROM_CFG);
    EXPECT_EQ(m_client.Creates(Item()), 200);
    EXPECT_THAT(
        m_log.Of(),
        ElementsAre("1 create app cfg item start...", "1 ------------cfg create info------------",
                    "1 config path:cfg", "1 backup path:bak", "1 default path:def",
                    "1 ---------------------------------------", "1 create crypto mgr start...",
                    "1 create crypto mgr done.", "1 create app cfg mgr start...",
                    "1 create app cfg mgr done.", "1 start save strategy ...", "1 start save strategy done.",
                    "1 start backup strategy ...", "1 start backup strategy done.",
                    "1 set backup path [bak]...", "1 set backup path done.", "1 set default path [def]...",
                    "1 set default path done.", "1 create new app cfg mgmt item... ",
                    "1 ------------cfg info------------", "1 config path:cfg", "1 config hndl:app1.net.0",
                    "1 config writable:true", "1 config save strategy:1", "1 config backup strategy:1",
                    "1 --------------------------------", "1 create new app cfg mgmt item done. "));
    EXPECT_EQ(RegisteredKeys(), Lines{"app1.net.0"});
}

// The lines that recovering writes, a letter each.
const std::map<char, std::string> RECOVERY_LINES = {
    {'m', "1 connect fd[N] : config file[cfg] not exists.try to recover..."},
    {'n', "3 connect fd[N] : config file[cfg] not exists & recover fail."},
    {'b', "1 connect fd[N] : try to restore config file[cfg] from backup[bak]..."},
    {'B', "1 connect fd[N] : restore config file[cfg] from backup[bak] done."},
    {'x', "1 connect fd[N] : restore config file[cfg] from backup[bak] fail."},
    {'d', "1 connect fd[N] : try to restore config file[cfg] from default[def]..."},
    {'D', "1 connect fd[N] : restore config file[cfg] from default[def] done."},
    {'y', "1 connect fd[N] : restore config file[cfg] from default[def] fail."},
    {'1', "1 copy default[bak] to cfg[cfg] done."},
    {'2', "1 copy default[def] to cfg[cfg] done."},
    {'r', "3 connect fd[N] : invalid config file format or unsupported config storage type[3]."},
};

struct Recovery {
    const char* claim;
    const char* cfg; // the files before: their text, or none
    const char* bak;
    const char* def;
    uint16_t status;
    const char* cfgAfter;
    const char* bakAfter;
    const char* lines;
};

TEST_F(ACreation, RecoversFromBackupOrDefault) {
    const char* const C = FROM_CFG;
    const char* const B = FROM_BAK;
    const char* const D = FROM_DEF;
    const char* const X = BROKEN;
    const Recovery recoveries[] = {
        {"a good file is taken as it is", C, B, D, 200, C, B, ""},
        {"the first backup is a copy of the file", C, NONE, D, 200, C, C, ""},
        {"the backup comes before the default", NONE, B, D, 200, B, B, "mbB"},
        {"the default becomes the backup too", NONE, NONE, D, 200, D, D, "mdD"},
        {"nothing to recover from", NONE, NONE, NONE, 404, NONE, NONE, "mn"},
        {"a broken file is replaced by its backup", X, B, D, 200, B, B, "b1B"},
        {"a broken backup leads to the default and stays", X, X, D, 200, D, X, "b1xd2D"},
        {"a root that is no object is broken too", ARRAY, B, NONE, 200, B, B, "b1B"},
        {"an empty file is broken too", "", B, NONE, 200, B, B, "b1B"},
        {"a broken file makes its own first backup", X, NONE, NONE, 403, X, X, "b1xdyr"},
        {"a missing file gets a broken backup first", NONE, X, D, 200, D, X, "mbBb1xd2D"},
        {"all broken", X, X, ARRAY, 403, ARRAY, X, "b1xd2yr"},
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
        Lines lines;
        for (const char* letter = entry.lines; *letter != 0; ++letter) {
            lines.push_back(RECOVERY_LINES.at(*letter));
        }
        EXPECT_EQ(m_log.Of({"config file[", "invalid", "copy default"}), lines);
        EXPECT_EQ(Text("cfg"), expected(entry.cfgAfter));
        EXPECT_EQ(Text("bak"), expected(entry.bakAfter));
        EXPECT_EQ(Text("def"), expected(entry.def));
        EXPECT_EQ(m_client.Deletes(), entry.status == 200 ? 200 : 404);
    }
}

TEST_F(ACreation, WithoutABackupPathUsesTheDefaultForABrokenFileOnly) {
    Writes("def", FROM_DEF);
    EXPECT_EQ(m_client.Creates(Item("cfg", "")), 400); // the file is missing
    EXPECT_EQ(m_log.Errors().size(), 1U);
    EXPECT_EQ(Text("cfg"), "(missing)");
    Writes("cfg", BROKEN);
    EXPECT_EQ(m_client.Creates(Item("cfg", "")), 200);
    EXPECT_EQ(m_client.Value("from"), "def");
    EXPECT_THAT(m_log.Of({"backup[]", "backup path"}),
                ElementsAre("1 backup path:", "1 backup path:",
                            "1 connect fd[N] : try to restore config file[cfg] from backup[]...",
                            "1 connect fd[N] : restore config file[cfg] from backup[] fail."));
}

TEST_F(ACreation, WithoutAFileOrAFirstBackupIsRefused) {
    Writes("cfg", FROM_CFG);
    EXPECT_EQ(m_client.Creates(Item("", "", "")), 400);
    EXPECT_EQ(m_client.Creates(Item("", "bak", "def")), 400);
    m_log.Clear();
    EXPECT_EQ(m_client.Creates(Item("cfg", "nowhere/bak")), 400);
    EXPECT_THAT(m_log.Errors(), ElementsAre(HasSubstr("nowhere")));
    EXPECT_EQ(Text("cfg"), FROM_CFG);
    EXPECT_EQ(RegisteredKeys(), Lines{});
}

TEST_F(ACreation, RefusesStorageAndCryptoTypesThatDoNotExist) {
    Writes("cfg", FROM_CFG);
    for (const int32_t type : {2, 4, -1}) {
        const std::string number = "[" + std::to_string(type) + "]";
        AppCfgCreateReq item = Item();
        item.storageType = static_cast<ConfigStorageType>(type);
        m_log.Clear();
        EXPECT_EQ(m_client.Creates(item), 403);
        EXPECT_THAT(m_log.Errors(), ElementsAre("3 connect fd[N] : invalid config file format or unsupported "
                                                "config storage type" +
                                                number + "."));
        item = Item();
        item.cryptoType = static_cast<ConfigCryptoType>(type);
        m_log.Clear();
        EXPECT_EQ(m_client.Creates(item), 403);
        EXPECT_THAT(m_log.Errors(),
                    ElementsAre("3 not support crypto mgr" + number,
                                "3 connect fd[N] : invalid crypto type" + number + " or param."));
        EXPECT_THAT(m_log.Of({"create app cfg mgr", "crypto mgr done"}), IsEmpty());
    }
}

// No text is refused by the path library of today; one of tomorrow may.
TEST_F(ACreation, RefusesPathsThatCannotBeParsedBeforeItTouchesAFile) {
    Writes("cfg", FROM_CFG);
    for (const int after : {0, 1}) {
        const Failing failing(Call::PARSE_PATH, after);
        EXPECT_EQ(m_client.Creates(Item()), 400);
    }
    EXPECT_EQ(m_log.Errors(), (Lines{"3 connect fd[N] : invalid backup path[bak].",
                                     "3 connect fd[N] : invalid default path[def]."}));
    EXPECT_EQ(Text("bak"), "(missing)");
}

TEST_F(ACreation, OfAPlainItemReadsNoKey) {
    HasItem(FROM_CFG);
    AppCfgCreateReq item = Item();
    std::memset(&item.cryptoParam, 0xA5, sizeof item.cryptoParam);
    EXPECT_EQ(m_client.Creates(item), 200);
    EXPECT_EQ(m_client.SetsRaw("from", "me"), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"from\": \"me\"\n}");
}

TEST_F(ACreation, WithAKnownHandleReplacesTheItem) {
    HasItem(FROM_CFG);
    EXPECT_EQ(m_client.Sets("from|first"), 200);
    Client other;
    Writes("cfg2", FROM_DEF);
    m_log.Clear();
    EXPECT_EQ(other.Creates(Item("cfg2", "bak2")), 200);
    EXPECT_EQ(m_log.Errors(), Lines{"3 connect fd[N] : appCfgKey[app1.net.0] already exist."});
    EXPECT_EQ(Text("cfg"), "{\n  \"from\": \"first\"\n}"); // what was acknowledged is not lost
    EXPECT_EQ(other.Value("from"), "def");
    EXPECT_EQ(other.SetsRaw("from", "second"), 200);
    EXPECT_EQ(Text("cfg"), "{\n  \"from\": \"first\"\n}");
    m_client.Close(); // the item is the other's now
    EXPECT_EQ(other.Value("from"), "second");
}

TEST_F(ACreation, ThatFailsLeavesAReplacedItemErased) {
    HasItem(FROM_CFG);
    EXPECT_EQ(m_client.Creates(Item("gone", "gone", "gone")), 404);
    EXPECT_EQ(m_client.Value("from"), "status 404");
}

// New threads get little, as the host's do, or a 32-bit process cannot address them all.
class ModestStacks {
public:
    ModestStacks() {
        pthread_attr_t modest;
        pthread_getattr_default_np(&m_former);
        pthread_attr_init(&modest);
        pthread_attr_setstacksize(&modest, 1 << 20);
        pthread_setattr_default_np(&modest);
        pthread_attr_destroy(&modest);
    }
    ~ModestStacks() {
        pthread_setattr_default_np(&m_former);
        pthread_attr_destroy(&m_former);
    }
    ModestStacks(const ModestStacks&) = delete;
    ModestStacks& operator=(const ModestStacks&) = delete;

private:
    pthread_attr_t m_former{};
};

TEST_F(ACreation, IsRefusedWhenThereAreTooManyItems) {
    const ModestStacks stacks;
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
    EXPECT_THAT(m_log.Errors(), ::testing::Contains("3 connect fd[N] : too many items: 1024, 256 of them of "
                                                    "this connection."));
    EXPECT_EQ(creates(m_client, MAX_ITEMS), 400);
    clients[0].Close();
    EXPECT_TRUE(Eventually([&] { return creates(m_client, MAX_ITEMS) == 200; }));
}

// The copies are known to the manager only once a backup strategy runs.
TEST_F(ACreation, WithoutABackupStrategyKeepsNoCopies) {
    Writes("cfg", FROM_CFG);
    Writes("def", FROM_DEF);
    AppCfgCreateReq item = Item();
    item.backupStrategy = ConfigBackupStrategy::NONE;
    EXPECT_EQ(m_client.Creates(item), 200);
    EXPECT_THAT(m_log.Of({"set backup", "set default", "start backup"}), IsEmpty());
    EXPECT_EQ(m_client.SetsRaw("from", "me"), 200);
    EXPECT_EQ(Text("bak"), FROM_CFG); // the first backup alone
    EXPECT_EQ(m_client.Restores(), 200);
    EXPECT_EQ(m_client.Value("from"), "me");
}

TEST_F(ACreation, WithoutStrategiesNeverSaves) {
    Writes("cfg", FROM_CFG);
    for (const int32_t none : {0, 4, -1}) {
        AppCfgCreateReq item = Item();
        item.saveStrategy = static_cast<ConfigSaveStrategy>(none);
        item.backupStrategy = static_cast<ConfigBackupStrategy>(none);
        m_log.Clear();
        EXPECT_EQ(m_client.Creates(item), 200);
        EXPECT_EQ(m_client.SetsRaw("from", "me"), 200);
        EXPECT_EQ(m_client.Deletes(), 200);
        EXPECT_THAT(m_log.Of({"strategy ..."}), IsEmpty());
        EXPECT_EQ(Text("cfg"), FROM_CFG);
    }
}

TEST_F(ACreation, ReadsFieldsUpToTheirEnds) {
    Writes("cfg", FROM_CFG);
    AppCfgCreateReq item = Item("cfg", "", "");
    std::memset(item.backupPath, 'b', sizeof item.backupPath);
    std::memset(item.defaultPath, 'd', sizeof item.defaultPath);
    EXPECT_EQ(m_client.Creates(item), 400); // no file name is that long
    EXPECT_EQ(m_log.Of({"backup path:", "default path:"}),
              (Lines{"1 backup path:" + std::string(256, 'b'), "1 default path:" + std::string(256, 'd')}));
}

} // namespace ServiceTest
