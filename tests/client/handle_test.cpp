#include <gtest/gtest.h>

#include "appcfg/error.h"
#include "appcfg/handle.h"

namespace appcfg {
namespace {

// The record has 32 bytes a name, its NUL among them; empty names are names.
TEST(HandleParts, FitTheRecord) {
    const std::string longest(31, 'n');
    EXPECT_EQ(Handle("", "", 3).ToString(), "//3");
    EXPECT_EQ(Handle::Parse(longest + "/" + longest), Handle(longest, longest));
    EXPECT_THROW(Handle(longest + "n", "x"), InvalidArgument);
    EXPECT_THROW(Handle("x", std::string("a\0", 2)), InvalidArgument);
    EXPECT_THROW(Handle::Parse(std::string("a\0b/c", 5)), InvalidArgument);
    EXPECT_NE(Handle("a", "b", 1), Handle("a", "b", 2));
}

} // namespace
} // namespace appcfg
