#include "item_encryption.h"
#include "service_fixture.h"

namespace ServiceTest {

constexpr char FILE_TEXT[] =
    R"(<cfg><net mtu="1500"><host>a</host><host>b</host></net><mode>day</mode></cfg>)";
constexpr char DEFAULT_TEXT[] = R"(<cfg><net mtu="9000"><host>z</host></net><mode>factory</mode></cfg>)";

class AnXmlItem : public AService {
protected:
    AppCfgCreateReq XmlItem(const std::string& key = "") {
        AppCfgCreateReq item = Item();
        item.storageType = ConfigStorageType::XML;
        EncryptWith(item, key);
        return item;
    }
    void HasXml() {
        Writes("cfg", FILE_TEXT);
        Writes("def", DEFAULT_TEXT);
        ASSERT_EQ(m_client.Creates(XmlItem()), 200);
    }
};

TEST_F(AnXmlItem, ServesValuesAndFragmentsOfOneTree) {
    HasXml();
    EXPECT_EQ(m_client.Value("net.host[1],net[@mtu],mode"), "b;1500;day");
    EXPECT_EQ(m_client.Sets("net.host[1]|c,net[@mtu]|1400"), 200);
    EXPECT_EQ(m_client.Raw("net"), R"(<net mtu="1400"><host>a</host><host>c</host></net>)");
    EXPECT_EQ(m_client.SetsRaw("net", "<host>first</host>"), 200);
    EXPECT_EQ(m_client.SetsRaw("", "<extra><deep>1</deep></extra>"), 200);
    EXPECT_EQ(m_client.Value("net.host,extra.deep"), "first;1");
    EXPECT_THAT(Text("cfg"), HasSubstr("<host>first</host>"));
    EXPECT_EQ(Text("bak"), Text("cfg"));
}

TEST_F(AnXmlItem, AnswersAnAttributeAsAnEmptyFragment) {
    HasXml();
    const Reply reply = m_client.GetsRaw("net[@mtu]");
    EXPECT_EQ(reply.header.status, 200);
    EXPECT_EQ(reply.payload.size(), sizeof(AppCfgRawDataReq) + 1);
    EXPECT_EQ(m_client.SetsRaw("net[@mtu]", "<x/>"), 400);
}

TEST_F(AnXmlItem, RefusesWhatItCouldNotWrite) {
    HasXml();
    const std::string before = m_client.Raw("");
    for (const char* query : {"mode|\x01", "mode|\xC3\x28", "net.host[5]|x", "mode[x]|1"}) {
        EXPECT_EQ(m_client.Sets(query), 400) << query;
    }
    for (const char* raw : {"<open>", "", "text", "<!DOCTYPE x [<!ENTITY e 'v'>]><x>&e;</x>", "<p:x/>"}) {
        EXPECT_EQ(m_client.SetsRaw("", raw), 400) << raw;
    }
    EXPECT_EQ(m_client.SetsRaw("missing", "<x/>"), 400);
    EXPECT_EQ(m_client.Raw("missing"), "status 404");
    EXPECT_EQ(m_client.Raw(""), before);
}

TEST_F(AnXmlItem, ShowsTheReloadedTreeAfterARestore) {
    HasXml();
    EXPECT_EQ(m_client.Sets("mode|night"), 200);
    EXPECT_EQ(m_client.Restores(), 200);
    EXPECT_EQ(m_client.Value("mode"), "factory");
    EXPECT_EQ(m_client.Raw("mode"), "<mode>factory</mode>");
    EXPECT_EQ(m_client.SetsRaw("", "<added>1</added>"), 200);
    EXPECT_THAT(Text("cfg"), HasSubstr("factory"));
    EXPECT_THAT(Text("cfg"), HasSubstr("<added>1</added>"));
}

TEST_F(AnXmlItem, KeepsItsValuesEncryptedOverACreation) {
    const std::string key = "k";
    WritesEncrypted(Path("cfg"), FILE_TEXT, key);
    ASSERT_EQ(m_client.Creates(XmlItem(key)), 200);
    EXPECT_EQ(m_client.Sets("mode|night"), 200);
    ASSERT_EQ(m_client.Deletes(), 200);
    EXPECT_EQ(Text("cfg").find("night"), std::string::npos);
    EXPECT_THAT(Decrypted(Path("cfg"), key), HasSubstr("<mode>night</mode>"));
    ASSERT_EQ(m_client.Creates(XmlItem(key)), 200);
    EXPECT_EQ(m_client.Value("mode"), "night");
}

} // namespace ServiceTest
