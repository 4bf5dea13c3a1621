#include <gtest/gtest.h>

#include "appcfg/error.h"
#include "appcfg/handle.h"

namespace appcfg {
namespace {

const std::string LONGEST(31, 'n');

TEST(HandleText, IsReadAsOwnerNameAndIndex) {
    const struct {
        std::string text;
        Handle expected;
    } good[] = {
        {"app/net", {"app", "net", 0}},
        {"app/net/0", {"app", "net", 0}},
        {"app/net/4294967295", {"app", "net", 4294967295U}},
        {"a.b/c d/007", {"a.b", "c d", 7}},
        {LONGEST + "/" + LONGEST, {LONGEST, LONGEST, 0}},
    };
    for (const auto& row : good) {
        EXPECT_EQ(Handle::Parse(row.text), row.expected) << row.text;
        EXPECT_EQ(Handle::Parse(row.expected.ToString()), row.expected) << row.text;
    }
}

TEST(HandleText, IsRefusedWhenItNamesNoItem) {
    const std::string bad[] = {
        "",
        "app",
        "/",
        "app/",
        "/net",
        "//0",
        "a/b/",
        "a/b/c",
        "a/b/-1",
        "a/b/+1",
        "a/b/ 1",
        "a/b/1 ",
        "a/b/0x1",
        "a/b/1/2",
        "a//1",
        "/b/1",
        "a/b/1.0",
        "a/b/4294967296",
        LONGEST + "n/name",
        "owner/" + LONGEST + "n",
        std::string("a\0b/c", 5),
    };
    for (const std::string& text : bad) {
        EXPECT_THROW(Handle::Parse(text), InvalidArgument) << text;
    }
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
