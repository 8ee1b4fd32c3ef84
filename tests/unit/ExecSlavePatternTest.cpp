#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "exec_slave/LineSplitter.h"
#include "exec_slave/Pattern.h"
#include "exec_slave/Version.h"

namespace quelta::execslave {

namespace {

bool matches(const std::string& expression, std::string_view text)
{
    std::string error;
    const Pattern pattern(expression, error);
    EXPECT_EQ(error, "");
    return pattern.matches(text);
}

std::vector<std::string> groups(const std::string& expression, std::string_view text)
{
    std::string error;
    return Pattern(expression, error).groups(text);
}

std::optional<uint32_t> version(const std::string& output, const std::string& pattern,
                                const std::string& expectedError = "")
{
    std::string error;
    const auto result = extractVersion(output, pattern, error);
    EXPECT_EQ(error, expectedError);
    return result;
}

} // namespace

TEST(ExecSlavePattern, MatchesAnyPartOfTheText)
{
    EXPECT_TRUE(matches("CUDA error", "12:00 CUDA error: out of memory"));
    EXPECT_FALSE(matches("CUDA error", "12:00 cuda error"));
    EXPECT_TRUE(matches("(?i)CUDA error", "12:00 cuda error"));
    EXPECT_TRUE(matches("^worker (online|ready)$", "worker ready"));
    EXPECT_FALSE(matches("^worker (online|ready)$", "my worker ready"));
    EXPECT_TRUE(matches("", ""));
}

TEST(ExecSlavePattern, AnInvalidExpressionHasAReasonAndMatchesNothing)
{
    for (const std::string expression : {"(", "[a", "a**", "\\", "(?<n", "a{2,1}", "[z-a]"})
    {
        std::string error;
        const Pattern pattern(expression, error);
        EXPECT_NE(error, "") << expression;
        EXPECT_FALSE(pattern.matches(expression));
        EXPECT_TRUE(pattern.groups(expression).empty());
    }
}

TEST(ExecSlavePattern, TakesTextAsBytes)
{
    EXPECT_TRUE(matches("Größe", "die Größe"));
    EXPECT_TRUE(matches("^.\\xFF.$", "\x80\xFF\xFE"));
    EXPECT_FALSE(matches("\\w|\\d|\\s|[a-z]", "\x80\xC4\xFF\xA0"));
    EXPECT_TRUE(matches("^[^a]+$", "\x80\xC4\xFF\xA0"));
    EXPECT_TRUE(matches("b", std::string_view("a\0b", 3)));
}

TEST(ExecSlavePattern, ASearchThatWouldTakeTooLongIsNoMatch)
{
    const std::string line(maxLineLength, 'a');
    EXPECT_FALSE(matches("^(a+)+b", line));
    EXPECT_FALSE(matches("^(a|aa)+$", line + "b"));
    EXPECT_FALSE(matches("(x+x+)+y", std::string(maxLineLength, 'x')));
}

TEST(ExecSlavePattern, UsualExpressionsFindTheirMatchAtTheEndOfTheLongestLine)
{
    auto line = std::string(maxLineLength - 20, 'e') + " error 42 failed";
    EXPECT_TRUE(matches("error \\d+ failed", line));
    EXPECT_TRUE(matches(".*error.*failed", line));
    EXPECT_TRUE(matches("(falling back|error \\d+)", line));
    EXPECT_TRUE(matches("^\\w+ error", line));
    EXPECT_TRUE(matches("^.*?error.*?failed$", line));
}

TEST(ExecSlavePattern, GroupsAreThoseOfTheFirstMatch)
{
    EXPECT_EQ(groups("(\\d+)\\.(\\d+)", "v 3.14 and 2.71"), (std::vector<std::string>{"3", "14"}));
    EXPECT_EQ(groups("(a)|(b)", "b"), (std::vector<std::string>{"", "b"}));
    EXPECT_EQ(groups("a(.*)", "ab\nc"), std::vector<std::string>{"b"});
    EXPECT_EQ(groups("a", "a"), std::vector<std::string>{});
    EXPECT_EQ(groups("(\\d)", "a"), std::vector<std::string>{});
}

TEST(ExecSlavePattern, CountsItsGroups)
{
    std::string error;
    EXPECT_EQ(Pattern("(a)(?:b)(c(d))", error).countGroups(), 3u);
    EXPECT_EQ(Pattern("a", error).countGroups(), 0u);
    EXPECT_EQ(Pattern("(", error).countGroups(), 0u);
}

TEST(ExecSlaveVersion, IsMadeOfTheGroups)
{
    EXPECT_EQ(version("Blender 3.4.1 (hash)\n", "Blender (\\d+)\\.(\\d+)\\.(\\d+)"), 3004001u);
    EXPECT_EQ(version("tool\nversion: 12\n", "^version: (\\d+)$"), 12000000u);
    EXPECT_EQ(version("4.2", "(\\d+)\\.(\\d+)(?:\\.(\\d+))?"), 4002000u);
    EXPECT_EQ(version("1.2.3.4", "(\\d)\\.(\\d)\\.(\\d)\\.(\\d)"), 1002003u);
    EXPECT_EQ(version("0.0.4294967295", "(\\d+)\\.(\\d+)\\.(\\d+)"), 4294967295u);
}

TEST(ExecSlaveVersion, IsMissingWithAReason)
{
    EXPECT_EQ(version("sh: not found\n", "Blender (\\d+)",
                      "version_pattern does not match the output \"sh: not found?\""),
              std::nullopt);
    EXPECT_EQ(version("3.x", "(\\d)\\.(.)",
                      "version_pattern captures \"x\", which is not a number from 0 to 4294967295"),
              std::nullopt);
    EXPECT_EQ(version("99999999999", "(\\d+)",
                      "version_pattern captures \"99999999999\", which is not a number from 0 to "
                      "4294967295"),
              std::nullopt);
    EXPECT_EQ(version("4295.0.0", "(\\d+)\\.(\\d+)\\.(\\d+)",
                      "the version is 4295000000, more than 4294967295"),
              std::nullopt);
}

} // namespace quelta::execslave
