#include "service_fixture.h"

namespace ServiceTest {

constexpr char FILE_TEXT[] = "name = top\nport=1\n[net]\nhost = a = b\nport=80\n; comment\n";

class AnIniItem : public AService {
protected:
    AnIniItem() {
        Writes("cfg", FILE_TEXT);
        Writes("def", "name = default\n");
        AppCfgCreateReq item = Item();
        item.storageType = ConfigStorageType::INI;
        EXPECT_EQ(m_client.Creates(item), 200);
    }
    ~AnIniItem() override {
        EXPECT_EQ(m_client.Deletes(), 200);
        EXPECT_EQ(Text("cfg"), FILE_TEXT);
        EXPECT_EQ(Text("bak"), FILE_TEXT); // the first backup
    }
};

TEST_F(AnIniItem, ChangesInMemoryAlone) {
    EXPECT_EQ(m_client.Value("name,net.host,NET.Port"), "top;a = b;80");
    EXPECT_EQ(m_client.Sets("net.port|81,name|"), 200);
    EXPECT_EQ(m_client.Value("net.port,name"), "81;");
    EXPECT_EQ(m_client.Sets("net.none|1"), 400);
    EXPECT_EQ(m_log.Count("config writable:false"), 1U);
    EXPECT_EQ(m_log.Count("strategy ..."), 0U);
}

TEST_F(AnIniItem, CannotBeRestored) {
    EXPECT_EQ(m_client.Restores(), 400);
    EXPECT_THAT(m_log.Errors(),
                ElementsAre("3 [connect fd[N] : app cfg item[app1.net.0] is a read-only config file."));
}

TEST_F(AnIniItem, AnswersRawReadsWithNothing) {
    EXPECT_EQ(m_client.GetsRaw("net").payload.size(), sizeof(AppCfgRawDataReq) + 1);
    EXPECT_EQ(m_client.Raw("none"), "");
}

// The bare name is looked up, the section's entry is written.
TEST_F(AnIniItem, SetsOneEntryOfASection) {
    const struct {
        const char* section;
        const char* data;
        uint16_t status;
        const char* error;
    } cases[] = {
        {"net", "port=99", 200, nullptr},
        {"new", " name = x ", 200, nullptr},
        {"net", "host=c", 400, "3 query key[host] not found."},
        {"net", "", 400, "3 invaild grammar[num of '=' not equal to 1]"},
        {"net", "port=1=2", 400, "3 invaild grammar[num of '=' not equal to 1]"},
        {"net", "=1", 400, "3 invaild grammar['=' at the beginning or end]"},
        {"net", "port=", 400, "3 invaild grammar['=' at the beginning or end]"},
        {"net", "port= ", 400, "3 Out of range"},
        {"net", " = ", 400, "3 Out of range"},
    };
    for (const auto& entry : cases) {
        m_log.Clear();
        EXPECT_EQ(m_client.SetsRaw(entry.section, entry.data), entry.status) << entry.data;
        const Lines errors = m_log.Errors();
        EXPECT_EQ(errors.empty(), entry.error == nullptr) << entry.data;
        if (entry.error != nullptr && !errors.empty()) {
            EXPECT_THAT(errors[0], HasSubstr(entry.error)) << entry.data;
        }
    }
    EXPECT_EQ(m_client.Value("net.port,new.name,port"), "99;x;1");
}

} // namespace ServiceTest
