#include <gtest/gtest.h>

#include "appcfg/error.h"
#include "appcfg/handle.h"

namespace appcfg {
namespace {

const std::string LONGEST(31, 'n');

TEST(HandleText, IsReadAsOwnerNameAndIndex) {
    const std::pair<std::string, Handle> good[] = {
        {"app/net", {"app", "net", 0}},
        {"app/net/0", {"app", "net", 0}},
        {"app/net/4294967295", {"app", "net", 4294967295U}},
        {"a.b/c d/007", {"a.b", "c d", 7}},
        {LONGEST + "/" + LONGEST, {LONGEST, LONGEST, 0}},
    };
    for (const auto& [text, expected] : good) {
        EXPECT_EQ(Handle::Parse(text), expected) << text;
        EXPECT_EQ(Handle::Parse(expected.ToString()), expected) << text;
    }
}

TEST(HandleText, IsRefusedWhenItNamesNoItem) {
    for (const char* text :
         {"", "app", "/", "app/", "/net", "//0", "a/b/", "a/b/c", "a/b/-1", "a/b/+1", "a/b/ 1", "a/b/1 ",
          "a/b/0x1", "a/b/1/2", "a//1", "/b/1", "a/b/1.0", "a/b/4294967296"}) {
        EXPECT_THROW(Handle::Parse(text), InvalidArgument) << text;
    }
    EXPECT_THROW(Handle::Parse(LONGEST + "n/name"), InvalidArgument);
    EXPECT_THROW(Handle::Parse("owner/" + LONGEST + "n"), InvalidArgument);
    EXPECT_THROW(Handle::Parse(std::string("a\0b/c", 5)), InvalidArgument);
}

// The record has 32 bytes a name, its NUL among them; empty names are names.
TEST(HandleParts, FitTheRecord) {
    EXPECT_EQ(Handle("", "", 3).ToString(), "//3");
    EXPECT_NO_THROW(Handle(LONGEST, LONGEST));
    EXPECT_THROW(Handle(LONGEST + "n", "x"), InvalidArgument);
    EXPECT_THROW(Handle("x", std::string("a\0", 2)), InvalidArgument);
    EXPECT_NE(Handle("a", "b", 1), Handle("a", "b", 2));
}

} // namespace
} // namespace appcfg
