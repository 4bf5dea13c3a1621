#include <filesystem>
#include <tuple>

#include "app_cfg_limits.h"
#include "support/service_fixture.h"

namespace ServiceTest {

// What is saved must load again, and what cannot be loaded for its size alone must not be replaced.
class ADocumentBound : public AService {
protected:
    // Saved at its end alone: a large document takes its time to be written.
    AppCfgCreateReq SavedAtItsEnd(ConfigStorageType type) const {
        AppCfgCreateReq item = Item();
        item.storageType = type;
        item.saveStrategy = ConfigSaveStrategy::DELAY;
        item.backupStrategy = ConfigBackupStrategy::NONE;
        return item;
    }
    void ExpectLoadsAgain(const AppCfgCreateReq& item, const std::string& query, const std::string& value) {
        ASSERT_EQ(m_client.Deletes(), 200);
        EXPECT_LE(Text("cfg").size(), MAX_DOCUMENT_BYTES);
        ASSERT_EQ(m_client.Creates(item), 200);
        EXPECT_EQ(m_client.Value(query), value);
    }
};

// A few bytes a level, and hundreds once each is indented.
std::string Towers(size_t count) {
    std::string deep;
    for (int level = 0; level < 200; ++level) {
        deep = "<d>" + deep + "</d>";
    }
    std::string wide = "<w>";
    for (size_t tower = 0; tower < count; ++tower) {
        wide += deep;
    }
    return wide + "</w>";
}

TEST_F(ADocumentBound, EndsTheGrowthOfJson) {
    const AppCfgCreateReq item = SavedAtItsEnd(ConfigStorageType::JSON);
    Writes("cfg", R"({"a": 1})");
    ASSERT_EQ(m_client.Creates(item), 200);
    const std::string chunk(3U << 20, 'x');
    int stored = 0;
    while (stored < 10 && m_client.SetsRaw("k" + std::to_string(stored), chunk) == 200) {
        ++stored;
    }
    EXPECT_EQ(stored, 5);
    EXPECT_THAT(m_log.Errors(), ::testing::Contains(HasSubstr("would make the document too large")));
    EXPECT_EQ(m_client.SetsRaw("", R"({"a": 2})"), 200);
    EXPECT_EQ(m_client.SetsRaw("k", "v"), 200);
    ExpectLoadsAgain(item, "a,k", "2;v");
}

TEST_F(ADocumentBound, EndsTheGrowthOfXml) {
    const AppCfgCreateReq item = SavedAtItsEnd(ConfigStorageType::XML);
    Writes("cfg", "<c><a>1</a><b><x/></b></c>");
    ASSERT_EQ(m_client.Creates(item), 200);
    const std::string chunk = "<big>" + std::string(6U << 20, 'x') + "</big>";
    EXPECT_EQ(m_client.SetsRaw("", chunk), 200);
    EXPECT_EQ(m_client.SetsRaw("b", chunk), 200);
    EXPECT_EQ(m_client.SetsRaw("b.x", chunk), 400);
    EXPECT_EQ(m_client.SetsRaw("b", Towers(120)), 400);
    ExpectLoadsAgain(item, "a", "1");
}

TEST_F(ADocumentBound, EndsTheGrowthOfIni) {
    Writes("cfg", "a=1\nb=1\n");
    ASSERT_EQ(m_client.Creates(SavedAtItsEnd(ConfigStorageType::INI)), 200);
    const std::string chunk(9U << 20, 'x');
    EXPECT_EQ(m_client.SetsRaw("s", "a=" + chunk), 200);
    EXPECT_EQ(m_client.SetsRaw("s", "b=" + chunk), 400);
    EXPECT_EQ(m_log.Errors(), Lines{"3 value of key[s.b] cannot be stored."});
    EXPECT_EQ(m_client.Value("a,b"), "1;1");
}

TEST_F(ADocumentBound, LeavesAFileAloneThatIsBeyondIt) {
    const auto json = [](const std::string& value) { return "{\"a\": " + value + "}"; };
    const std::string deep(MAX_JSON_DEPTH - 1, '[');
    const std::string arrays = deep + std::string(MAX_JSON_DEPTH - 1, ']');
    const std::tuple<ConfigStorageType, std::string, const char*> files[] = {
        {ConfigStorageType::JSON, json('"' + std::string(MAX_FILE_BYTES, 'x') + '"'), "file too large"},
        {ConfigStorageType::JSON, json(arrays), nullptr},
        {ConfigStorageType::JSON, json("[" + arrays + "]"), "objects and arrays nest too deep"},
        {ConfigStorageType::JSON, json("[18446744073709551615, -9223372036854775808]"), nullptr},
        {ConfigStorageType::JSON, json("18446744073709551616"), "an integer beyond 64 bits"},
        {ConfigStorageType::JSON, json("-9223372036854775809"), "an integer beyond 64 bits"},
        {ConfigStorageType::JSON, json("18446744073709551620"), "a number beyond what can be kept"},
        {ConfigStorageType::JSON, json("1e400"), "a number beyond what can be kept"},
        {ConfigStorageType::JSON, json(R"("18446744073709551616 \u0000\\")"), nullptr},
        {ConfigStorageType::JSON, R"({"a\u0000b" : 1})", "a name with a NUL"},
        {ConfigStorageType::XML, Towers(500), "document too large"},
        {ConfigStorageType::XML, "<!--" + std::string(2U << 20, ' ') + "--><a/>", "too long"},
        {ConfigStorageType::INI, "a=" + std::string(MAX_FILE_BYTES, 'x'), "file too large"},
    };
    for (const auto& [type, text, limit] : files) {
        Writes("cfg", text);
        Writes("bak", "old");
        AppCfgCreateReq item = SavedAtItsEnd(type);
        m_log.Clear();
        EXPECT_EQ(m_client.Creates(item), limit == nullptr ? 200 : 400) << text.substr(0, 40);
        EXPECT_EQ(m_client.Deletes(), limit == nullptr ? 200 : 404);
        if (limit != nullptr) {
            EXPECT_THAT(m_log.Errors(), ElementsAre(::testing::AllOf(HasSubstr(limit), HasSubstr("cfg")),
                                                    HasSubstr("not found")));
            EXPECT_TRUE(Text("cfg") == text && Text("bak") == "old") << limit;
        }
    }
}

} // namespace ServiceTest
