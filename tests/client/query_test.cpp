#include <gtest/gtest.h>

#include "appcfg/error.h"
#include "query.h"

namespace appcfg {
namespace {

TEST(AQuery, JoinsKeysAndPairs) {
    EXPECT_EQ(BuildGetQuery({}), "");
    EXPECT_EQ(BuildGetQuery({"a", "b.c[1]", "d|e"}), "a,b.c[1],d|e");
    EXPECT_EQ(BuildSetQuery({}), "");
    EXPECT_EQ(BuildSetQuery({{"a", "1"}, {"b", ""}, {"c", " x=y "}}), "a|1,b|,c| x=y ");
}

TEST(AQuery, RefusesKeysThatAGetWouldReadAsOthers) {
    for (const std::string& key : {std::string(), std::string("a,b"), std::string(" a"), std::string("a\t"),
                                   std::string(" "), std::string("a\0", 2)}) {
        EXPECT_THROW(BuildGetQuery({"good", key}), InvalidArgument) << key;
    }
}

TEST(AQuery, RefusesPairsThatWouldBecomeOthers) {
    const std::pair<std::string, std::string> bad[] = {
        {"", "v"},  {"a|b", "v"}, {"a,b", "v"},       {std::string("\0", 1), "v"},
        {"k", ","}, {"k", "a|"},  {"k", "1,other|2"}, {"k", std::string("v\0w", 3)},
    };
    for (const auto& pair : bad) {
        EXPECT_THROW(BuildSetQuery({{"good", "1"}, pair}), InvalidArgument)
            << pair.first << "|" << pair.second;
    }
}

TEST(AQuery, FillsTheRecordAndNoMore) {
    EXPECT_EQ(BuildGetQuery({std::string(12287, 'k')}).size(), 12287U);
    EXPECT_THROW(BuildGetQuery({std::string(12288, 'k')}), InvalidArgument);
    EXPECT_THROW(BuildGetQuery(std::vector<std::string>(6144, "kk")), InvalidArgument);
    EXPECT_EQ(BuildSetQuery({{"k", std::string(12285, 'v')}}).size(), 12287U);
    EXPECT_THROW(BuildSetQuery({{"k", std::string(12286, 'v')}}), InvalidArgument);
}

} // namespace
} // namespace appcfg
