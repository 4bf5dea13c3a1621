#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "appcfg/value.h"

namespace appcfg {
namespace {

TEST(AValue, IsReadAsItsType) {
    EXPECT_EQ(ParseValue<int64_t>("-9223372036854775808"), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(ParseValue<uint64_t>("18446744073709551615"), std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(ParseValue<double>("1e-3"), 0.001);
    for (const char* text : {"true", "YES", "On", "1"}) {
        EXPECT_TRUE(ParseValue<bool>(text)) << text;
    }
    for (const char* text : {"false", "No", "OFF", "0"}) {
        EXPECT_FALSE(ParseValue<bool>(text)) << text;
    }
}

TEST(AValue, IsRefusedAsAnotherType) {
    for (const char* text : {"", " 1", "1 ", "+1", "1.5", "0x10", "one", "9223372036854775808"}) {
        EXPECT_THROW(ParseValue<int64_t>(text), ValueError) << text;
    }
    EXPECT_THROW(ParseValue<uint64_t>("-1"), ValueError);
    EXPECT_THROW(ParseValue<int16_t>("32768"), ValueError);
    for (const char* text : {"", "1,5", "1.5x", "1e999"}) {
        EXPECT_THROW(ParseValue<double>(text), ValueError) << text;
    }
    for (const char* text : {"", "2", "t", "truely", "tru"}) {
        EXPECT_THROW(ParseValue<bool>(text), ValueError) << text;
    }
}

TEST(AValue, SurvivesTheWayThroughText) {
    for (const double value : {0.1, -1.0 / 3.0, 5e-324, 1.7976931348623157e308}) {
        EXPECT_EQ(ParseValue<double>(FormatValue(value)), value);
    }
    const int64_t least = std::numeric_limits<int64_t>::min();
    EXPECT_EQ(ParseValue<int64_t>(FormatValue(least)), least);
    EXPECT_TRUE(ParseValue<bool>(FormatValue(true)));
    EXPECT_FALSE(ParseValue<bool>(FormatValue(false)));
}

} // namespace
} // namespace appcfg
