#include "util/CommandLineSplitter.h"

#include <gtest/gtest.h>

namespace quelta::test {
namespace {

using Arguments = std::vector<std::string>;

/** The arguments after the program's name. */
Arguments split(const std::string& arguments)
{
    auto all = splitCommandLine("s " + arguments);
    EXPECT_EQ(all.at(0), "s");
    all.erase(all.begin());
    return all;
}

TEST(CommandLineSplitterTest, ASlaveCommandLineIsSplitIntoTheArgumentsOfItsMain)
{
    EXPECT_EQ(
        splitCommandLine("\"slave.exe\" --net-master-address 192.168.0.10 --net-master-port 5130 "
                         "--daemon-port 5300 --alias \"node7\" -g 0 -g 2 --out-of-core 8589934592"),
        (Arguments{"slave.exe", "--net-master-address", "192.168.0.10", "--net-master-port", "5130",
                   "--daemon-port", "5300", "--alias", "node7", "-g", "0", "-g", "2",
                   "--out-of-core", "8589934592"}));
}

TEST(CommandLineSplitterTest, InTheProgramNameQuotesGroupAndBackslashesAreLiteral)
{
    EXPECT_EQ(splitCommandLine("\"my slave\" x"), (Arguments{"my slave", "x"}));
    EXPECT_EQ(splitCommandLine("\"C:\\dir\\\" x"), (Arguments{"C:\\dir\\", "x"}));
    EXPECT_EQ(splitCommandLine("a\" b\"c x"), (Arguments{"a bc", "x"}));
    EXPECT_EQ(splitCommandLine("a\\\"b c\" x"), (Arguments{"a\\b c", "x"}));
    EXPECT_EQ(splitCommandLine("\"a\"\"b\" x"), (Arguments{"ab", "x"}));
    EXPECT_EQ(splitCommandLine("\"open x"), (Arguments{"open x"}));
}

TEST(CommandLineSplitterTest, TheProgramNameMayBeEmpty)
{
    EXPECT_EQ(splitCommandLine(""), Arguments{""});
    EXPECT_EQ(splitCommandLine("\"\""), Arguments{""});
    EXPECT_EQ(splitCommandLine(" x"), (Arguments{"", "x"}));
}

TEST(CommandLineSplitterTest, OnlyBlanksAndTabsSeparate)
{
    EXPECT_EQ(split(" a\tb \t c "), (Arguments{"a", "b", "c"}));
    EXPECT_EQ(split("a\nb\rc\vd"), Arguments{"a\nb\rc\vd"});
    EXPECT_EQ(split(""), Arguments{});
    EXPECT_EQ(split("  \t "), Arguments{});
}

TEST(CommandLineSplitterTest, QuotesGroup)
{
    EXPECT_EQ(split("\"a b\" c"), (Arguments{"a b", "c"}));
    EXPECT_EQ(split("a\" \"b"), Arguments{"a b"});
    EXPECT_EQ(split("\"a\"b\"c d\""), Arguments{"abc d"});
    EXPECT_EQ(split("\"a\tb"), Arguments{"a\tb"});
}

TEST(CommandLineSplitterTest, EmptyQuotesAreAnEmptyArgument)
{
    EXPECT_EQ(split("--alias \"\""), (Arguments{"--alias", ""}));
    EXPECT_EQ(split("\"\" x"), (Arguments{"", "x"}));
    EXPECT_EQ(split("x \""), (Arguments{"x", ""}));
    EXPECT_EQ(split("a\"\"b"), Arguments{"ab"});
}

TEST(CommandLineSplitterTest, TwoQuotesInsideQuotesAreALiteralQuoteAndDoNotEndThem)
{
    EXPECT_EQ(split("\"a\"\"b c\" d"), (Arguments{"a\"b c", "d"}));
    EXPECT_EQ(split("\"a\"\" b\""), Arguments{"a\" b"});
    EXPECT_EQ(split("\"\"\"x y\"\"\" z"), (Arguments{"\"x y\"", "z"}));
    EXPECT_EQ(split("\"\"\"\" x"), (Arguments{"\"", "x"}));
    EXPECT_EQ(split("\"\"\" x"), Arguments{"\" x"});
    EXPECT_EQ(split("\"\"\"\"\"\" x"), (Arguments{"\"\"", "x"}));
}

TEST(CommandLineSplitterTest, BackslashesBeforeOtherCharactersAreLiteral)
{
    EXPECT_EQ(split("a\\b \\\\c d\\"), (Arguments{"a\\b", "\\\\c", "d\\"}));
    EXPECT_EQ(split("\\ x"), (Arguments{"\\", "x"}));
    EXPECT_EQ(split("\"a\\ b\""), Arguments{"a\\ b"});
    EXPECT_EQ(split("\\\\\\"), Arguments{"\\\\\\"});
}

TEST(CommandLineSplitterTest, AnOddNumberOfBackslashesMakesAQuoteLiteral)
{
    EXPECT_EQ(split("a\\\"b"), Arguments{"a\"b"});
    EXPECT_EQ(split("\\\" x"), (Arguments{"\"", "x"}));
    EXPECT_EQ(split("\"a\\\"b c\" d"), (Arguments{"a\"b c", "d"}));
    EXPECT_EQ(split("a\\\\\\\"b c"), (Arguments{"a\\\"b", "c"}));
}

TEST(CommandLineSplitterTest, AnEvenNumberOfBackslashesIsHalvedAndTheQuoteGroups)
{
    EXPECT_EQ(split("a\\\\\"b c\" d"), (Arguments{"a\\b c", "d"}));
    EXPECT_EQ(split("\"C:\\dir\\\\\" x"), (Arguments{"C:\\dir\\", "x"}));
    EXPECT_EQ(split("\"C:\\dir\\\" x"), Arguments{"C:\\dir\" x"});
    EXPECT_EQ(split("\"a\\\\\\\\\" x"), (Arguments{"a\\\\", "x"}));
    EXPECT_EQ(split("\"a\\\\\"\"b\" x"), (Arguments{"a\\\"b", "x"}));
}

TEST(CommandLineSplitterTest, OtherBytesAreKept)
{
    EXPECT_EQ(split("M\xC3\xBCller \xFF\x01 'a b' $x `y` *"),
              (Arguments{"M\xC3\xBCller", "\xFF\x01", "'a", "b'", "$x", "`y`", "*"}));
}

TEST(CommandLineSplitterTest, LongTextsAreSplitLikeShortOnes)
{
    const std::string backslashes(1'000'000, '\\');
    EXPECT_EQ(split(backslashes + "\"a b\"").at(0), backslashes.substr(500'000) + "a b");
    EXPECT_EQ(split(std::string(1'000'000, '"')).at(0).size(), 499'999u);
    EXPECT_EQ(split(std::string(1'000'000, ' ')), Arguments{});
}

} // namespace
} // namespace quelta::test
