#include <ctime>

#include "app_cfg_limits.h"
#include "service_fixture.h"

namespace ServiceTest {

using AGet = AService;
using ASet = AService;

constexpr char SETTINGS[] = R"({"a": 1, "b": {"c": "two", "e": ""}, "l": [10, 20], "t": true, "z": null,
    "ref": "<${a}>", "far": "${ref}!", "no": "${none}", "open": "${a", "self": "${self}", "all": "${}",
    "plain": "$a $ $$"})";

std::string Word(uint32_t word) {
    return PlatformTest::Bytes(word);
}

struct Exchange {
    const char* query;
    const char* answer;
};

TEST_F(AGet, AnswersByItsQuery) {
    HasItem(SETTINGS);
    const Exchange exchanges[] = {
        {"a", "1"},
        {"b.c", "two"},
        {" a , ,b.c,", "1;two"},
        {"b.e,a", ";1"},
        {"l[1],t", "20;true"},
        {"a,a,a", "1;1;1"},
        {"missing", "status 400"},
        {"a,missing", "status 400"},
        {"z", "status 400"},
        {"l[2]", "status 400"},
        {"l[99999999999]", "status 400"},
        {"ref", "<1>"},
        {"far", "<1>!"},
        {"no", "${none}"},
        {"open", "1"},
        {"plain", "$a $ $$"},
        {"self", "status 400"},
        {"all", "status 400"},
    };
    for (const Exchange& exchange : exchanges) {
        EXPECT_EQ(m_client.Value(exchange.query), exchange.answer) << exchange.query;
    }
}

TEST_F(AGet, LaysItsReplyOutByteForByte) {
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.Gets("b.c,b.e,a").payload, Word(3) + Word(3) + "two" + Word(0) + Word(1) + "1");
    EXPECT_EQ(m_client.Gets(" , ,").payload, Word(0));
    EXPECT_EQ(m_client.Gets("b.e").payload, Word(1) + Word(0));
}

// Answers 400, which alone would not say why.
TEST_F(AGet, TellsTheLogWhatWasMissing) {
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.Value("missing"), "status 400");
    EXPECT_THAT(m_log.Errors(), ElementsAre(HasSubstr("missing")));
    EXPECT_EQ(m_client.Value("a"), "1");
}

TEST_F(AGet, EndsAQueryWithoutANulAtItsField) {
    HasItem(SETTINGS);
    const Reply whole = m_client.Gets(std::string(APP_CFG_QUERY_SIZE - 1, ',') + "a");
    EXPECT_EQ(whole.payload, Word(1) + Word(1) + "1");
    EXPECT_EQ(m_client.Sets(std::string(APP_CFG_QUERY_SIZE - 3, ',') + "a|7"), 200);
    EXPECT_EQ(m_client.Value("a"), "7");
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
}

TEST_F(AGet, RefusesAKeyOfTooManySteps) {
    HasItem(SETTINGS);
    std::string key = "b";
    for (size_t step = 0; step <= MAX_KEY_STEPS; ++step) {
        key += ".c";
    }
    EXPECT_EQ(m_client.Value(key), "status 400");
    EXPECT_THAT(m_log.Errors(), ElementsAre(HasSubstr("too many steps")));
}

struct SetCase {
    const char* query;
    uint16_t status;
    const char* values; // of "a,b.c,b.e" afterwards
    Lines errors;
};

constexpr char ONE_SEPARATOR[] = "3 invaild grammar[num of Key Value Separator not equal to 1]";
constexpr char NO_KEY[] = "3 invaild grammar[Key Value Separator at the beginning or end]";

TEST_F(ASet, FollowsItsGrammarAndKeepsWhatCameBeforeAFault) {
    const SetCase cases[] = {
        {"a|2", 200, "2;two;", {}},
        {"a|2,b.c|x,b.e|y", 200, "2;x;y", {}},
        {"a|2,,a|3,", 200, "3;two;", {}},
        {"", 200, "1;two;", {}},
        {",,", 200, "1;two;", {}},
        {"a|", 200, ";two;", {}},
        {"a| 2 ", 200, " 2 ;two;", {}},
        {"a|2,b", 400, "2;two;", {ONE_SEPARATOR}},
        {"a|2|3", 400, "1;two;", {ONE_SEPARATOR}},
        {"a||", 400, "1;two;", {ONE_SEPARATOR}},
        {"a|2, ", 400, "2;two;", {ONE_SEPARATOR}},
        {"|x", 400, "1;two;", {NO_KEY}},
        {"|", 400, "1;two;", {NO_KEY}},
        {" a|2", 400, "1;two;", {"3 query key[ a] not found."}},
        {"a |2", 400, "1;two;", {"3 query key[a ] not found."}},
        {"a|2,new|1,b.c|x", 400, "2;two;", {"3 query key[new] not found."}},
    };
    for (const SetCase& entry : cases) {
        HasItem(SETTINGS);
        EXPECT_EQ(m_client.Sets(entry.query), entry.status) << entry.query;
        EXPECT_EQ(m_client.Value("a,b.c,b.e"), entry.values) << entry.query;
        EXPECT_EQ(m_log.Errors(), entry.errors) << entry.query;
        m_client.Deletes();
    }
}

TEST_F(ASet, StoresTextWhateverStoodThere) {
    HasItem(R"({"n": 1, "t": true})");
    EXPECT_EQ(m_client.Sets("n|42,t|false"), 200);
    EXPECT_EQ(m_client.Raw(""), "{\n  \"n\": \"42\",\n  \"t\": \"false\"\n}");
}

TEST_F(ASet, IsTraced) {
    HasItem(SETTINGS);
    m_client.Sets("a|2");
    EXPECT_THAT(m_log.Of({"uri", "query", "---", "config"}, 0),
                ElementsAre("0 receive uri: 1,method: 3", "0 queryString : [a|2]",
                            "0 ------------cfg info------------",
                            "0 config hndl:app1.net.0, set data success.",
                            "0 --------------------------------"));
}

// What the document library refuses with an exception is answered too, and the lock is free again.
TEST_F(ASet, AnswersAFaultOfTheLibrary) {
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.Sets("b.c|x,a[0]|2"), 400);
    EXPECT_EQ(m_log.Errors().size(), 1U);
    EXPECT_EQ(m_client.Value("b.c"), "x");
}

TEST_F(ASet, OfInvalidUtf8LeavesItemAndFileAlone) {
    HasItem(R"({"a": "1"})");
    for (const char* bad : {"\xFF", "\xC3", "\xE2\x82", "\xC0\xAF", "\xED\xA0\x80", "\xF5\x80\x80\x80"}) {
        EXPECT_EQ(m_client.Sets(std::string("a|") + bad), 400) << bad;
    }
    EXPECT_THAT(m_log.Errors(), ::testing::Each(HasSubstr("[a]")));
    EXPECT_EQ(m_log.Errors().size(), 6U);
    EXPECT_EQ(m_client.Sets("a|\xE2\x82\xAC\xF0\x9F\x98\x80"), 200);
    Stops();
    EXPECT_EQ(Text("cfg"), "{\n  \"a\": \"\xE2\x82\xAC\xF0\x9F\x98\x80\"\n}");
}

} // namespace ServiceTest
