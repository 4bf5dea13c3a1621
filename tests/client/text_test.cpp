// Handles, queries, replies and values: what they take as text or bytes, and what they refuse.
#include <gtest/gtest.h>

#include <limits>

#include "appcfg/error.h"
#include "appcfg/handle.h"
#include "appcfg/value.h"
#include "query.h"
#include "reply.h"
#include "support/scripted_peer.h"

namespace appcfg {
namespace {

using namespace std::string_literals;
using Support::Bytes;
using Support::FragmentPayload;
using Support::ValuesPayload;
using Values = std::vector<std::string>;

// The record has 32 bytes a name, its NUL among them; empty names are names.
TEST(AHandle, FitsTheRecord) {
    const std::string longest(31, 'n');
    EXPECT_EQ(Handle("", "", 3).ToString(), "//3");
    EXPECT_EQ(Handle::Parse(longest + "/" + longest), Handle(longest, longest));
    EXPECT_THROW(Handle(longest + "n", "x"), InvalidArgument);
    EXPECT_THROW(Handle("x", "a\0"s), InvalidArgument);
    EXPECT_THROW(Handle::Parse("a\0b/c"s), InvalidArgument);
    EXPECT_NE(Handle("a", "b", 1), Handle("a", "b", 2));
}

TEST(AQuery, JoinsKeysAndPairsAsFarAsTheRecordGoes) {
    EXPECT_EQ(BuildGetQuery({}) + BuildSetQuery({}), "");
    EXPECT_EQ(BuildGetQuery({"a", "b.c[1]", "d|e"}), "a,b.c[1],d|e");
    EXPECT_EQ(BuildSetQuery({{"a", "1"}, {"b", ""}, {"c", " x=y "}}), "a|1,b|,c| x=y ");
    EXPECT_EQ(BuildGetQuery({std::string(12287, 'k')}).size(), 12287U);
    EXPECT_THROW(BuildGetQuery({std::string(12288, 'k')}), InvalidArgument);
    EXPECT_THROW(BuildGetQuery(Values(6144, "kk")), InvalidArgument);
    EXPECT_EQ(BuildSetQuery({{"k", std::string(12285, 'v')}}).size(), 12287U);
    EXPECT_THROW(BuildSetQuery({{"k", std::string(12286, 'v')}}), InvalidArgument);
}

TEST(AQuery, RefusesWhatTheServiceWouldReadAsOtherKeysOrPairs) {
    for (const std::string& key : {""s, "a,b"s, " a"s, "a\t"s, " "s, "a\0"s}) {
        EXPECT_THROW(BuildGetQuery({"good", key}), InvalidArgument) << key;
    }
    const std::pair<std::string, std::string> bad[] = {{"", "v"},  {"a|b", "v"}, {"a,b", "v"},  {"\0"s, "v"},
                                                       {"k", ","}, {"k", "a|"},  {"k", "v\0w"s}};
    for (const auto& pair : bad) {
        EXPECT_THROW(BuildSetQuery({{"good", "1"}, pair}), InvalidArgument) << pair.first << pair.second;
    }
}

// In memory of its exact size, so that a sanitizer sees a read beyond it.
template <typename Call>
auto Exactly(const std::string& content, Call parse) {
    const std::vector<char> exact(content.begin(), content.end());
    return parse(exact.data(), exact.size());
}

Values Parse(const std::string& content, size_t expected) {
    return Exactly(content,
                   [&](const void* bytes, size_t size) { return ParseValues(bytes, size, expected); });
}

std::string Words(std::initializer_list<uint32_t> words) {
    std::string bytes;
    for (const uint32_t word : words) {
        bytes += Bytes(word);
    }
    return bytes;
}

TEST(ValuesOfAReply, KeepTheirOrderLengthsAndBytes) {
    const Values values = {"", "a", "x\0y"s, std::string(70000, 'z'), ""};
    EXPECT_EQ(Parse(ValuesPayload(values), values.size()), values);
    EXPECT_EQ(Parse(ValuesPayload({}), 0), Values());
}

TEST(ValuesOfAReply, AreRefusedWhenTheLengthsDoNotAddUp) {
    const std::string whole = ValuesPayload({"a"});
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_THROW(Parse(whole.substr(0, size), 1), ConnectionError) << size;
    }
    for (const std::string& content : {Words({1, 0xFFFFFFFF}), Words({1, 0xFFFFFFFC, 0}),
                                       Words({0xFFFFFFFF, 0}), Words({2, 0, 0}), Words({0}), whole + "b"}) {
        EXPECT_THROW(Parse(content, 1), ConnectionError) << content.size();
    }
    EXPECT_THROW(ParseValues(nullptr, 0, 1), ConnectionError);
}

TEST(AFragmentOfAReply, IsWhatLiesBetweenHeadAndNul) {
    for (const std::string& text : {""s, "<a/>"s, std::string(100000, 'x')}) {
        EXPECT_EQ(Exactly(FragmentPayload(text), ParseFragment), text);
    }
    const std::string head(200, '\0');
    EXPECT_THROW(Exactly(head + Words({5}) + "abcde", ParseFragment), ConnectionError) << "it does not end";
    for (const uint32_t length : {0U, 1U, 4U, 6U, 0xFFFFFFFFU}) {
        EXPECT_THROW(Exactly(head + Words({length}) + "abcd\0"s, ParseFragment), ConnectionError) << length;
    }
    for (size_t size = 0; size <= 204; ++size) {
        EXPECT_THROW(Exactly(std::string(size, '\0'), ParseFragment), ConnectionError) << size;
    }
}

TEST(AValue, IsReadAsItsTypeAndNoOther) {
    const int64_t least = std::numeric_limits<int64_t>::min();
    EXPECT_EQ(ParseValue<int64_t>(FormatValue(least)), least);
    EXPECT_EQ(ParseValue<uint64_t>("18446744073709551615"), UINT64_MAX);
    for (const char* text : {"", " 1", "1 ", "+1", "1.5", "0x10", "one", "9223372036854775808"}) {
        EXPECT_THROW(ParseValue<int64_t>(text), ValueError) << text;
    }
    EXPECT_THROW(ParseValue<uint64_t>("-1"), ValueError);
    EXPECT_THROW(ParseValue<int16_t>("32768"), ValueError);
    for (const double value : {0.1, -1.0 / 3.0, 5e-324, 1.7976931348623157e308}) {
        EXPECT_EQ(ParseValue<double>(FormatValue(value)), value);
    }
    for (const char* text : {"", "1,5", "1.5x", "1e999"}) {
        EXPECT_THROW(ParseValue<double>(text), ValueError) << text;
    }
    for (const std::string& text : {FormatValue(true), "YES"s, "On"s, "1"s}) {
        EXPECT_TRUE(ParseValue<bool>(text)) << text;
    }
    for (const std::string& text : {FormatValue(false), "No"s, "OFF"s, "0"s}) {
        EXPECT_FALSE(ParseValue<bool>(text)) << text;
    }
    for (const char* text : {"", "2", "t", "truely", "tru"}) {
        EXPECT_THROW(ParseValue<bool>(text), ValueError) << text;
    }
}

} // namespace
} // namespace appcfg
