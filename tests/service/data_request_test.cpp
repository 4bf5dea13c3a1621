// Requests for values and fragments whose bytes are not well formed, or come near a bound. What a client can
// do with well-formed ones stands in tests/sessions.
#include <ctime>

#include "app_cfg_limits.h"
#include "support/service_fixture.h"

namespace ServiceTest {

using AGet = AService;
using ASet = AService;
using ARawSet = AService;

constexpr char SETTINGS[] = R"({"a": 1, "b": {"c": "two", "e": ""}, "l": [10, 20]})";

std::string Word(size_t word) {
    return Bytes(static_cast<uint32_t>(word));
}

TEST_F(AGet, LaysItsReplyOutByteForByte) {
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.Gets("b.c,b.e,a").payload, Word(3) + Word(3) + "two" + Word(0) + Word(1) + "1");
    EXPECT_EQ(m_client.Gets(" , ,").payload, Word(0));
    EXPECT_EQ(m_client.Value(" a , ,b.c,"), "1;two");
    EXPECT_EQ(m_client.Gets(std::string(APP_CFG_QUERY_SIZE - 1, ',') + "a").payload, Word(1) + Word(1) + "1");
    EXPECT_EQ(m_client.Sets(std::string(APP_CFG_QUERY_SIZE - 3, ',') + "a|7"), 200) << "without a NUL";
    EXPECT_EQ(m_client.Value("a"), "7");
    for (const std::string& fragment : Lines{"two", ""}) {
        const std::string length = Word(fragment.size() + 1);
        EXPECT_EQ(m_client.GetsRaw(fragment.empty() ? "b.e" : "b.c").payload,
                  length + std::string(196, '\0') + length + fragment + '\0');
    }
}

// Ten levels of ten references each, and a long value asked for many times: far more than a reply holds.
// Seconds of the processor for what takes a fraction of one; instrumented code is ten times as slow.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr std::clock_t PATIENCE = 20;
#else
constexpr std::clock_t PATIENCE = 2;
#endif

TEST_F(AGet, RefusesWhatWouldExpandBeyondAReplyAtOnce) {
    std::string bomb = R"({"x0": ")" + std::string(2000, 'x') + R"(")";
    for (int level = 1; level <= 9; ++level) {
        bomb += ", \"x" + std::to_string(level) + "\": \"";
        for (int i = 0; i < 10; ++i) {
            bomb += "${x" + std::to_string(level - 1) + "}";
        }
        bomb += "\"";
    }
    HasItem(bomb + R"(, "long": ")" + std::string(1 << 20, 'y') + "\"}");
    std::string often;
    for (int i = 0; i < 20; ++i) {
        often += "long,";
    }
    const std::clock_t begin = std::clock(); // of the processor: other tests run beside this one
    EXPECT_EQ(m_client.Value("x9"), "status 400");
    EXPECT_EQ(m_client.Value(often), "status 400");
    EXPECT_LT(std::clock() - begin, PATIENCE * CLOCKS_PER_SEC);
    EXPECT_EQ(m_client.Value("x2").size(), 200000U);
    EXPECT_EQ(m_client.Value("long").size(), 1U << 20);
    std::string key = "b";
    for (size_t step = 0; step <= MAX_KEY_STEPS; ++step) {
        key += ".c";
    }
    EXPECT_EQ(m_client.Value(key), "status 400");
    EXPECT_EQ(m_log.Count("too many steps"), 1U);
}

TEST_F(AGet, OfAFragmentBeyondAReplyIsRefused) {
    HasItem(R"({"a": [")" + std::string((16 << 20) - 200, 'x') + R"("]})");
    EXPECT_EQ(m_client.Raw("a[0]"), "status 500");
    EXPECT_EQ(m_client.Raw("b"), "status 404");
}

struct SetCase {
    std::string query;
    uint16_t status;
    const char* values; // of "a,b.c,b.e" afterwards
};

// What the document library refuses with an exception is answered too.
TEST_F(ASet, FollowsItsGrammarAndKeepsWhatCameBeforeAFault) {
    const SetCase cases[] = {
        {"a|2,b.c|x,b.e|y", 200, "2;x;y"},
        {"a|2,,a|3,", 200, "3;two;"},
        {"", 200, "1;two;"},
        {",,", 200, "1;two;"},
        {"a|", 200, ";two;"},
        {"a| 2 ", 200, " 2 ;two;"},
        {"a|2,b", 400, "2;two;"},
        {"a|2|3", 400, "1;two;"},
        {"a||", 400, "1;two;"},
        {"a|2, ", 400, "2;two;"},
        {"|x", 400, "1;two;"},
        {"|", 400, "1;two;"},
        {" a|2", 400, "1;two;"},
        {"a|2,new|1,b.c|x", 400, "2;two;"},
        {"b.c|x,a[0]|2", 400, "1;x;"},
        {"a|\xFF", 400, "1;two;"},
        {"a|\xC3", 400, "1;two;"},
        {"a|\xE2\x82", 400, "1;two;"},
        {"a|\xC0\xAF", 400, "1;two;"},
        {"a|\xED\xA0\x80", 400, "1;two;"},
        {"a|\xF5\x80\x80\x80", 400, "1;two;"},
        {"a|\xE2\x82\xAC\xF0\x9F\x98\x80", 200, "\xE2\x82\xAC\xF0\x9F\x98\x80;two;"},
    };
    for (const SetCase& entry : cases) {
        HasItem(SETTINGS);
        EXPECT_EQ(m_client.Sets(entry.query), entry.status) << entry.query;
        EXPECT_EQ(m_client.Value("a,b.c,b.e"), entry.values) << entry.query;
        EXPECT_EQ(m_log.Errors().size(), entry.status == 200 ? 0U : 1U) << entry.query;
        m_client.Deletes();
    }
}

struct RawCase {
    const char* key;
    uint32_t dataLen;
    std::string data;
    uint16_t status;
};

TEST_F(ARawSet, DemandsTheLengthOfItsDataAndOneMoreAndUtf8) {
    HasItem(SETTINGS);
    const RawCase cases[] = {
        {"a", 6, std::string("12345\0", 6), 200},
        {"a", 6, "12345", 200},
        {"a", 6, std::string("12345\0zz", 8), 200},
        {"a", 1, std::string("\0", 1), 200},
        {"a", 1, "", 200},
        {"a", 5, "12345", 400},
        {"a", 7, "12345", 400},
        {"a", 0, "", 400},
        {"a", 0, "12345", 400},
        {"a", UINT32_MAX, "12345", 400},
        {"a", 6, std::string("12\000345", 6), 400},
        {"a", 3, "\xC3(", 400},
        {"k\xFF", 2, "1", 400},
        {"", 11, "{\"a\": \"\xFF\"}", 400},
    };
    for (const RawCase& entry : cases) {
        m_client.SetsRaw("a", "before");
        m_log.Clear();
        EXPECT_EQ(m_client.SetsRawBytes(entry.key, entry.dataLen, entry.data), entry.status) << entry.data;
        EXPECT_EQ(m_client.Raw("a"), entry.status == 200 ? entry.data.c_str() : "before");
        EXPECT_EQ(m_log.Errors().empty(), entry.status == 200) << entry.data;
    }
}

} // namespace ServiceTest
