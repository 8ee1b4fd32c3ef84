#include "util/LeadingInteger.h"

#include <gtest/gtest.h>

#include <limits>

namespace quelta::test {
namespace {

TEST(LeadingIntegerTest, DigitsAreReadUpToTheFirstOtherCharacter)
{
    EXPECT_EQ(parseLeadingInt32("12"), 12);
    EXPECT_EQ(parseLeadingInt32("12abc"), 12);
    EXPECT_EQ(parseLeadingInt32("1.5"), 1);
    EXPECT_EQ(parseLeadingInt32("1-2"), 1);
    EXPECT_EQ(parseLeadingInt32("3 4"), 3);
}

TEST(LeadingIntegerTest, TheBaseIsTen)
{
    EXPECT_EQ(parseLeadingInt32("010"), 10);
    EXPECT_EQ(parseLeadingInt32("0x10"), 0);
}

TEST(LeadingIntegerTest, LeadingBlanksAndOneSignAreAccepted)
{
    EXPECT_EQ(parseLeadingInt32("  12"), 12);
    EXPECT_EQ(parseLeadingInt32("\t\r\n 12"), 12);
    EXPECT_EQ(parseLeadingInt32("+7"), 7);
    EXPECT_EQ(parseLeadingInt32(" -7"), -7);
}

TEST(LeadingIntegerTest, NoDigitGivesZero)
{
    for (const auto* text : {"", " ", "abc", "-", "+", "--5", "+-5", "- 5", ",1"})
    {
        EXPECT_EQ(parseLeadingInt32(text), 0) << text;
        EXPECT_EQ(parseLeadingInt64(text), 0) << text;
    }
}

TEST(LeadingIntegerTest, ValuesBeyond32BitsSaturate)
{
    EXPECT_EQ(parseLeadingInt32("2147483647"), 2147483647);
    EXPECT_EQ(parseLeadingInt32("2147483648"), 2147483647);
    EXPECT_EQ(parseLeadingInt32("4294967297"), 2147483647);
    EXPECT_EQ(parseLeadingInt32("-2147483648"), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(parseLeadingInt32("-2147483649"), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(parseLeadingInt32("99999999999999999999999999"), 2147483647);
    EXPECT_EQ(parseLeadingInt32("-99999999999999999999999999"),
              std::numeric_limits<int32_t>::min());
}

TEST(LeadingIntegerTest, ValuesBeyond64BitsSaturate)
{
    EXPECT_EQ(parseLeadingInt64("4294967297"), 4294967297);
    EXPECT_EQ(parseLeadingInt64("9223372036854775807"), 9223372036854775807);
    EXPECT_EQ(parseLeadingInt64("9223372036854775808"), 9223372036854775807);
    EXPECT_EQ(parseLeadingInt64("-9223372036854775808"), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(parseLeadingInt64("-9223372036854775809"), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(parseLeadingInt64("+99999999999999999999999999x"), 9223372036854775807);
}

} // namespace
} // namespace quelta::test
