#include "service_fixture.h"

namespace ServiceTest {

using ARawGet = AService;
using ARawSet = AService;

constexpr char SETTINGS[] = R"({"a": 1, "b": {"c": "two", "e": ""}, "l": [10, 20]})";
constexpr char NOT_SET[] = "3 SetRawString fail.";

TEST_F(ARawGet, LaysItsReplyOutByteForByte) {
    HasItem(SETTINGS);
    for (const std::string& fragment : Lines{"two", ""}) {
        const std::string length = PlatformTest::Bytes(static_cast<uint32_t>(fragment.size()) + 1);
        const Reply reply = m_client.GetsRaw(fragment.empty() ? "b.e" : "b.c");
        EXPECT_EQ(reply.header.status, 200);
        EXPECT_EQ(reply.payload, length + std::string(196, '\0') + length + fragment + '\0');
    }
    EXPECT_THAT(m_log.Of({"dataLen"}), ElementsAre("1 dataLen is 4, total is 208 offsetPos 204",
                                                   "1 dataLen is 1, total is 205 offsetPos 204"));
}

TEST_F(ARawGet, YieldsFragmentsOrTheWholeDocument) {
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.Raw("a"), "1");
    EXPECT_EQ(m_client.Raw("b"), "{\n  \"c\": \"two\",\n  \"e\": \"\"\n}");
    EXPECT_EQ(m_client.Raw(""), "{\n  \"a\": 1,\n  \"b\": {\n    \"c\": \"two\",\n    \"e\": \"\"\n  },\n"
                                "  \"l\": [\n    10,\n    20\n  ]\n}");
}

TEST_F(ARawGet, OfAMissingKeyIsNotFound) {
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.Raw("b.x"), "status 404");
    EXPECT_EQ(m_client.Raw("l[x]"), "status 404");
    EXPECT_EQ(m_client.Raw("l[99999999999]"), "status 404");
    EXPECT_THAT(m_log.Errors(), ElementsAre(NOT_SET, "3 [connect fd[N] : XML Key[b.x] not found.", NOT_SET,
                                            "3 [connect fd[N] : XML Key[l[x]] not found.", NOT_SET,
                                            "3 [connect fd[N] : XML Key[l[99999999999]] not found."));
}

TEST_F(ARawGet, BeyondAReplyIsRefused) {
    HasItem(R"({"a": [")" + std::string((16 << 20) - 200, 'x') + R"("]})");
    EXPECT_EQ(m_client.Raw("a[0]"), "status 500");
    EXPECT_THAT(m_log.Errors(), ElementsAre(HasSubstr("3 Failed to pcalloc buf len 167772")));
    EXPECT_EQ(m_client.Raw("b"), "status 404");
}

struct LengthCase {
    uint32_t dataLen;
    std::string data;
    uint16_t status;
};

TEST_F(ARawSet, DemandsTheLengthOfItsDataAndOneMore) {
    HasItem(SETTINGS);
    const LengthCase cases[] = {
        {6, std::string("12345\0", 6), 200},
        {6, "12345", 200},
        {6, std::string("12345\0zz", 8), 200},
        {1, std::string("\0", 1), 200},
        {1, "", 200},
        {5, "12345", 400},
        {7, "12345", 400},
        {0, "", 400},
        {0, "12345", 400},
        {UINT32_MAX, "12345", 400},
        {6,
         std::string("12\0"
                     "345",
                     6),
         400},
    };
    for (const LengthCase& entry : cases) {
        m_client.SetsRaw("a", "before");
        m_log.Clear();
        EXPECT_EQ(m_client.SetsRawBytes("a", entry.dataLen, entry.data), entry.status);
        const std::string text = entry.data.c_str();
        EXPECT_EQ(m_client.Raw("a"), entry.status == 200 ? text : "before");
        const std::string line = "3 string len " + std::to_string(text.size()) + " is not equal datalen " +
                                 std::to_string(static_cast<int32_t>(entry.dataLen)) + " ";
        EXPECT_EQ(m_log.Errors(), entry.status == 200 ? Lines{} : Lines{line});
    }
}

TEST_F(ARawSet, MakesThePathOfItsKey) {
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.SetsRaw("b.new.k", "{\"x\": 1}"), 200);
    EXPECT_EQ(m_client.Raw("b.new.k"), "{\"x\": 1}"); // text, not a tree
    EXPECT_EQ(m_client.Raw("b.new.k.x"), "status 404");
    EXPECT_EQ(m_client.SetsRaw("l", "flat"), 200);
    EXPECT_EQ(m_client.Raw("l"), "flat");
    EXPECT_THAT(
        m_log.Of({"config", "---"}),
        ElementsAre("1 ------------cfg info------------", "1 config hndl:app1.net.0, set raw data success.",
                    "1 --------------------------------", "1 ------------cfg info------------",
                    "1 config hndl:app1.net.0, set raw data success.", "1 --------------------------------"));
}

// Saved before the request is answered.
TEST_F(ARawSet, OfTheWholeDocumentIsOnDiskWithItsReply) {
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.SetsRaw("", " {\"new\": {\"k\": [1.5, null]}}"), 200);
    EXPECT_EQ(m_client.Value("a"), "status 400");
    const std::string saved = "{\n  \"new\": {\n    \"k\": [\n      1.5,\n      null\n    ]\n  }\n}";
    EXPECT_EQ(Text("cfg"), saved);
    EXPECT_EQ(Text("bak"), saved);
    EXPECT_EQ(m_client.Raw(""), saved);
}

TEST_F(ARawSet, RefusesADocumentThatCouldNotBeLoadedAgain) {
    HasItem(SETTINGS);
    const std::string before = m_client.Raw("");
    const std::string deep = "{\"d\": " + std::string(200, '[') + std::string(200, ']') + "}";
    for (const std::string& document :
         {std::string("[]"), std::string(" \t\n[1]"), std::string("5"), std::string("null"), std::string(""),
          std::string("not json"), std::string("{\"a\": 1"), std::string("{} junk"),
          std::string("{\"a\": \"\xFF\"}"), std::string(R"({"a": "\ud800"})"),
          std::string(R"({"a": "\udc00x"})"), deep}) {
        m_log.Clear();
        EXPECT_EQ(m_client.SetsRaw("", document), 400) << document;
        EXPECT_EQ(m_log.Errors(), Lines{NOT_SET}) << document;
        EXPECT_EQ(m_client.Raw(""), before) << document;
    }
    EXPECT_EQ(Text("cfg"), SETTINGS);
}

TEST_F(ARawSet, RefusesAValueOrKeyThatIsNotUtf8) {
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.SetsRaw("a", "\xC3("), 400);
    EXPECT_EQ(m_client.SetsRaw("k\xFF", "1"), 400);
    EXPECT_THAT(m_log.Errors(), ElementsAre(HasSubstr("[a]"), NOT_SET, HasSubstr("[k"), NOT_SET));
    EXPECT_EQ(Text("cfg"), SETTINGS);
}

struct PaddingCase {
    const char* key;
    uint16_t status;
};

// The library fills an array up to the index, 72 bytes an element.
TEST_F(ARawSet, BoundsTheElementsThatAnIndexLeavesEmpty) {
    const PaddingCase cases[] = {{"l[65537]", 200},
                                 {"l[65538]", 400},
                                 {"new[65536]", 400},
                                 {"l[4294967296]", 400},
                                 {"l[99999999999999999999]", 400},
                                 {"new[1][65536]", 400},
                                 {"l[2]", 200}};
    for (const PaddingCase& entry : cases) {
        HasItem(SETTINGS);
        EXPECT_EQ(m_client.SetsRaw(entry.key, "x"), entry.status) << entry.key;
        EXPECT_EQ(m_client.Raw(entry.key), entry.status == 200 ? "x" : "status 404") << entry.key;
        m_client.Deletes();
    }
}

TEST_F(ARawSet, OnWhatIsNoContainerIsRefused) {
    HasItem(SETTINGS);
    for (const char* key : {"a.x", "a[0]", "b[1]", "a."}) {
        EXPECT_EQ(m_client.SetsRaw(key, "x"), 400) << key;
    }
    EXPECT_EQ(m_log.Errors(), Lines(4, NOT_SET));
    EXPECT_EQ(m_client.Raw("b.c"), "two");
}

} // namespace ServiceTest
