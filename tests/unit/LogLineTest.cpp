#include <gtest/gtest.h>

#include "log/JuceLog.h"
#include "log/LogClock.h"
#include "support/LogCapture.h"

namespace quelta::test {
namespace {

constexpr size_t maxLineLength = 102'399;
constexpr juce::int64 day = 86'400'000;

juce::int64 fakeTime = 0;

class LogLineTest : public testing::Test
{
protected:
    LogLineTest()
    {
        fakeTime = 0;
        setLogClock([] { return fakeTime; });
    }

    ~LogLineTest() override { setLogClock(nullptr); }

    std::string lineAt(juce::int64 time)
    {
        fakeTime = time;
        log.clear();
        logUnprefixed("x");
        return log.lines().at(0);
    }

    LogCapture log;
};

TEST_F(LogLineTest, WithoutTimeAndPrefixALineIsItsText)
{
    logPrintf("daemon", "%s has %d of %u", "node7", -3, 4u);
    logUnprefixed("plain %c", 'x');
    logError("bad %05.1f", 2.25);
    logString("JUCE", "text with 100% of its signs");
    EXPECT_EQ(log.lines(),
              (Lines{"node7 has -3 of 4", "plain x", "bad 002.2", "text with 100% of its signs"}));
}

TEST_F(LogLineTest, LineFeedsInATextAreKept)
{
    logError("\na\nb\n");
    EXPECT_EQ(log.lines(), Lines{"\na\nb\n"});
}

TEST_F(LogLineTest, TheTimeOfDayIsWrittenInUtc)
{
    flags::logTime = 1;
    EXPECT_EQ(lineAt(0), "[00:00:00.000] x");
    EXPECT_EQ(lineAt(3'723'004), "[01:02:03.004] x");
    EXPECT_EQ(lineAt(20'000 * day + 12 * 3'600'000), "[12:00:00.000] x");
}

TEST_F(LogLineTest, TheTimeOfDayRestartsAtMidnight)
{
    flags::logTime = 1;
    EXPECT_EQ(lineAt(20'000 * day - 1), "[23:59:59.999] x");
    EXPECT_EQ(lineAt(20'000 * day), "[00:00:00.000] x");
}

TEST_F(LogLineTest, ByDefaultTheLogUsesTheSystemClock)
{
    setLogClock(nullptr);
    flags::logTime = 1;
    const auto before = juce::Time::currentTimeMillis() % day;
    logUnprefixed("x");
    const auto after = juce::Time::currentTimeMillis() % day;

    int hours = -1;
    int minutes = -1;
    int seconds = -1;
    int milliseconds = -1;
    ASSERT_EQ(std::sscanf(log.lines().at(0).c_str(), "[%02d:%02d:%02d.%03d] x", &hours, &minutes,
                          &seconds, &milliseconds),
              4);
    const juce::int64 logged = ((hours * 60 + minutes) * 60 + seconds) * 1000 + milliseconds;

    if (before > after)
        GTEST_SKIP() << "midnight passed during the test";

    EXPECT_GE(logged, before);
    EXPECT_LE(logged, after);
}

TEST_F(LogLineTest, AnyNonZeroTimeFlagTurnsTheTimeOn)
{
    flags::logTime = -1;
    EXPECT_EQ(lineAt(0), "[00:00:00.000] x");
}

TEST_F(LogLineTest, ThePrefixFieldHasTwelveCharacters)
{
    flags::logPrefix = 1;
    logPrintf("daemon", "x");
    logError("x");
    logString("JUCE", "x");
    EXPECT_EQ(log.lines(), (Lines{"daemon    : x", "ERROR     : x", "JUCE      : x"}));
}

TEST_F(LogLineTest, ALongPrefixIsTruncatedToTenCharacters)
{
    flags::logPrefix = 1;
    logPrintf("0123456789", "x");
    logPrintf("0123456789a", "x");
    logPrintf("0123456789abcdefghijklmnopqrstuvwxyz", "x");
    EXPECT_EQ(log.lines(), (Lines{"0123456789: x", "0123456789: x", "0123456789: x"}));
}

TEST_F(LogLineTest, WithoutAPrefixTheFieldIsBlank)
{
    flags::logPrefix = 1;
    logUnprefixed("x");
    logPrintf("", "x");
    logPrintf(nullptr, "x");
    logString("", "x");
    logString(nullptr, "x");
    EXPECT_EQ(log.lines(), Lines(5, "            x"));
}

TEST_F(LogLineTest, TheTimePrecedesThePrefix)
{
    flags::logTime = 1;
    flags::logPrefix = 1;
    fakeTime = 43'200'001;
    logPrintf("daemon", "x");
    logString("JUCE", "y");
    EXPECT_EQ(log.lines(), (Lines{"[12:00:00.001] daemon    : x", "[12:00:00.001] JUCE      : y"}));
}

TEST_F(LogLineTest, EmptyTextsGiveEmptyLines)
{
    logUnprefixed("%s", "");
    logString("", "");
    EXPECT_EQ(log.lines(), (Lines{"", ""}));
}

TEST_F(LogLineTest, ALineOfMaximumLengthIsNotTruncated)
{
    const std::string text(maxLineLength, 'x');
    logUnprefixed("%s", text.c_str());
    EXPECT_EQ(log.lines(), Lines{text});
}

TEST_F(LogLineTest, LongerLinesAreTruncated)
{
    const std::string text(maxLineLength + 1, 'x');
    logUnprefixed("%s", text.c_str());
    logError("%s and the rest", (text + text).c_str());
    EXPECT_EQ(log.lines(), Lines(2, std::string(maxLineLength, 'x')));
}

TEST_F(LogLineTest, TimeAndPrefixCountTowardsTheLength)
{
    flags::logTime = 1;
    flags::logPrefix = 1;
    const std::string text(maxLineLength, 'x');
    const auto cut = "[00:00:00.000] daemon    : " + std::string(maxLineLength - 27, 'x');
    logPrintf("daemon", "%s", text.c_str());
    logString("daemon", juce::String(text));
    EXPECT_EQ(log.lines(), Lines(2, cut));
}

TEST_F(LogLineTest, TimeOrPrefixCountsTowardsTheLengthOfAFormattedText)
{
    const juce::String text(std::string(maxLineLength, 'x'));
    flags::logTime = 1;
    logString("JUCE", text);
    flags::logTime = 0;
    flags::logPrefix = 1;
    logString("JUCE", text);
    EXPECT_EQ(log.lines(), (Lines{"[00:00:00.000] " + std::string(maxLineLength - 15, 'x'),
                                  "JUCE      : " + std::string(maxLineLength - 12, 'x')}));
}

TEST_F(LogLineTest, AFormattedTextWithoutTimeAndPrefixMayHaveAnyLength)
{
    const std::string text(5 * maxLineLength, 'x');
    logString("JUCE", juce::String(text));
    EXPECT_EQ(log.lines(), Lines{text});
}

TEST_F(LogLineTest, Utf8IsKept)
{
    logUnprefixed("%s", "M\xC3\xBCller");
    logString("", juce::String::fromUTF8("\xE2\x82\xAC"));
    EXPECT_EQ(log.lines(), (Lines{"M\xC3\xBCller", "\xE2\x82\xAC"}));
}

TEST_F(LogLineTest, TheArgumentsOfAGuardedCallAreNotEvaluatedWhileItsFlagIsZero)
{
    int evaluations = 0;
    QUELTA_LOG_DAEMON("%d", ++evaluations);
    QUELTA_LOG_DAEMON_DETAIL("%d", ++evaluations);
    EXPECT_EQ(evaluations, 0);
    EXPECT_EQ(log.lines(), Lines{});

    flags::daemon = 1;
    QUELTA_LOG_DAEMON("%d", ++evaluations);
    QUELTA_LOG_DAEMON_DETAIL("%d", ++evaluations);
    EXPECT_EQ(log.lines(), Lines{"1"});

    flags::daemon = 0;
    flags::daemonDetail = -1;
    QUELTA_LOG_DAEMON("%d", ++evaluations);
    QUELTA_LOG_DAEMON_DETAIL("%d", ++evaluations);
    EXPECT_EQ(log.lines(), (Lines{"1", "2"}));
    EXPECT_EQ(evaluations, 2);
}

TEST_F(LogLineTest, BothGuardedCallsHaveTheDaemonsPrefix)
{
    flags::logPrefix = 1;
    flags::daemon = 1;
    flags::daemonDetail = 1;
    QUELTA_LOG_DAEMON("x");
    QUELTA_LOG_DAEMON_DETAIL("y");
    EXPECT_EQ(log.lines(), (Lines{"daemon    : x", "daemon    : y"}));
}

TEST_F(LogLineTest, ErrorsAreLoggedWithoutAnyFlag)
{
    logError("x");
    EXPECT_EQ(log.lines(), Lines{"x"});
}

TEST_F(LogLineTest, AMessageFromJuceIsPrefixed)
{
    flags::logPrefix = 1;
    JuceLog().logMessage(juce::String::fromUTF8("50% of M\xC3\xBCller"));
    EXPECT_EQ(log.lines(), Lines{"JUCE      : 50% of M\xC3\xBCller"});
}

} // namespace
} // namespace quelta::test
