#include <gtest/gtest.h>

#include <algorithm>

#include "log/JuceLog.h"
#include "log/LogClock.h"
#include "log/LogSinks.h"
#include "support/LogCapture.h"
#include "support/StandardStreamCapture.h"
#include "support/TemporaryFolder.h"

namespace quelta::test {
namespace {

juce::int64 localTime(int year, int month, int day, int hours, int minutes, int seconds)
{
    return juce::Time(year, month - 1, day, hours, minutes, seconds).toMilliseconds();
}

class LogLifecycleTest : public testing::Test
{
protected:
    LogLifecycleTest()
    {
        setLogClock([] { return localTime(2026, 11, 16, 0, 43, 48); });
    }

    ~LogLifecycleTest() override
    {
        LogCapture::removeAllSinks(); // drops the lines of the shutdown
        shutdownLog();
        juce::Logger::setCurrentLogger(nullptr);
        setLogClock(nullptr);
    }

    void init() { initLog(folder.getPath().c_str()); }

    void writeFlagsFile(const char* text)
    {
        writeBytes(folder.getChild("quelta_daemon_log_flags.txt"), text);
    }

    const TemporaryFolder folder;
    const juce::File logFile = folder.getChild("quelta_daemon_log.txt");
    LogCapture log;
};

TEST_F(LogLifecycleTest, TheFirstLinesShowWhenLoggingStarted)
{
    init();
    EXPECT_EQ(log.lines(), (Lines{"Started logging on 16.11.26 00:43:48", ""}));
}

TEST_F(LogLifecycleTest, TheLastLinesShowWhenLoggingStopped)
{
    init();
    setLogClock([] { return localTime(2027, 1, 2, 23, 4, 5); });
    log.clear();
    shutdownLog();
    EXPECT_EQ(log.lines(), (Lines{"", "Stopped logging on 02.01.27 23:04:05", ""}));
}

TEST_F(LogLifecycleTest, TheFirstLinesHaveTimeAndEmptyPrefixLikeAnyOther)
{
    setLogClock([] { return juce::int64{1'000}; });
    writeFlagsFile("logTime logPrefix");
    init();
    EXPECT_TRUE(log.lines().at(0).starts_with("[00:00:01.000]             Started logging on "));
    EXPECT_EQ(log.lines().at(1), "[00:00:01.000]             ");
}

TEST_F(LogLifecycleTest, ByDefaultLinesAppearOnStandardOutputOnly)
{
    StandardStreamCapture output(stdout);
    StandardStreamCapture error(stderr);
    flags::logToStdout = 1; // as the application does
    init();
    QUELTA_LOG_DAEMON("a message of the daemon");
    QUELTA_LOG_DAEMON_DETAIL("a detail");
    logError("an error");
    shutdownLog();
    error.stop();
    output.stop();

    EXPECT_EQ(output.getWritten(),
              "Started logging on 16.11.26 00:43:48\n\nan error\n\nStopped logging on 16.11.26 "
              "00:43:48\n\n");
    EXPECT_EQ(error.getWritten(), "");
    EXPECT_FALSE(logFile.exists());
}

TEST_F(LogLifecycleTest, TheFlagsFileMayTurnTheConsoleOff)
{
    StandardStreamCapture output(stdout);
    flags::logToStdout = 1;
    writeFlagsFile("logToStdout 0");
    init();
    logError("x");
    output.stop();
    EXPECT_EQ(output.getWritten(), "");
    EXPECT_EQ(LogAccess::getSinks().size(), 1u); // the capturing one
}

TEST_F(LogLifecycleTest, TheFlagsFileMayRedirectTheConsoleToStandardError)
{
    StandardStreamCapture output(stdout);
    StandardStreamCapture error(stderr);
    flags::logToStdout = 1;
    writeFlagsFile("logToStdout 2");
    init();
    error.stop();
    output.stop();
    EXPECT_EQ(output.getWritten(), "");
    EXPECT_EQ(error.getWritten(), "Started logging on 16.11.26 00:43:48\n\n");
}

TEST_F(LogLifecycleTest, SinksAreAddedInTheOrderConsoleDebuggerFile)
{
    StandardStreamCapture output(stdout);
    LogCapture::removeAllSinks();
    writeFlagsFile("logToFile logToDebugConsole logToStdout");
    init();
    output.stop();
    EXPECT_EQ(LogAccess::getSinks(), (std::vector<LogSink>{writeToConsole, writeToDebugConsole,
                                                           LogAccess::getFileSink()}));
}

TEST_F(LogLifecycleTest, WithoutFlagsNoSinkIsAdded)
{
    init();
    EXPECT_EQ(LogAccess::getSinks().size(), 1u); // the capturing one
    EXPECT_EQ(LogAccess::getFlushTimer(), nullptr);
}

TEST_F(LogLifecycleTest, ADumpOfTheFlagsFollowsTheFirstLine)
{
    flags::logToStdout = 1;
    StandardStreamCapture output(stdout);
    writeFlagsFile("logFlags");
    init();
    output.stop();
    const auto lines = log.lines();
    EXPECT_EQ((Lines{lines.begin(), lines.begin() + 3}),
              (Lines{"Started logging on 16.11.26 00:43:48", "",
                     "Flag                      Type    Value      Prefix       Description"}));
    EXPECT_EQ(lines.size(), 1 + 3 + getLogFlagRegistry()->size() + 1);
    EXPECT_EQ(lines.back(), "");
    EXPECT_NE(std::find(lines.begin(), lines.end(),
                        "logFlags                  release 1          \"\"           If enabled, "
                        "all log flags will "
                        "be dumped during startup"),
              lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(),
                        "logToStdout               release 1          \"\"           If enabled, "
                        "logging will go to "
                        "standard out (when set to 1) or standard error (when set to 2)"),
              lines.end());
}

TEST_F(LogLifecycleTest, TheLogFileHoldsAllLines)
{
    writeFlagsFile("logToFile");
    writeBytes(logFile, "previous run\n");
    init();
    logError("x");
    shutdownLog();
    EXPECT_EQ(
        readBytes(logFile),
        "Started logging on 16.11.26 00:43:48\n\nx\n\nStopped logging on 16.11.26 00:43:48\n\n");
}

TEST_F(LogLifecycleTest, TheLogFileIsAppendedToWhenAsked)
{
    writeFlagsFile("logToFile logAppendToFile");
    writeBytes(logFile, "previous run\n");
    init();
    flushLog();
    EXPECT_EQ(readBytes(logFile), "previous run\nStarted logging on 16.11.26 00:43:48\n\n");
}

TEST_F(LogLifecycleTest, FlushingWithoutALogFileDoesNothing)
{
    flushLog();
    init();
    flushLog();
    EXPECT_FALSE(logFile.exists());
}

TEST_F(LogLifecycleTest, LinesLoggedAfterShutdownAreDropped)
{
    writeFlagsFile("logToFile");
    init();
    shutdownLog();
    logFile.deleteFile();
    log.clear();
    logError("x");
    logString("JUCE", "y");
    flushLog();
    EXPECT_FALSE(logFile.exists());
    EXPECT_EQ(log.lines(), Lines{});
    EXPECT_EQ(LogAccess::getSinks().size(), 0u);
}

TEST_F(LogLifecycleTest, LoggingCanStartAgainAfterShutdown)
{
    writeFlagsFile("logToFile");
    init();
    shutdownLog();
    init();
    shutdownLog();
    EXPECT_EQ(readBytes(logFile),
              "Started logging on 16.11.26 00:43:48\n\n\nStopped logging on 16.11.26 00:43:48\n\n");
}

TEST_F(LogLifecycleTest, StartingTwiceAddsSinksAndTimerOnce)
{
    StandardStreamCapture output(stdout);
    writeFlagsFile("logToStdout logToFile logFlushTime=60000");
    init();
    writeFlagsFile("logFlushTime=30000");
    init();
    output.stop();
    EXPECT_EQ(LogAccess::getSinks().size(), 3u); // the capturing one among them
    EXPECT_EQ(log.lines(), (Lines{"Started logging on 16.11.26 00:43:48", "",
                                  "Started logging on 16.11.26 00:43:48", ""}));
    ASSERT_NE(LogAccess::getFlushTimer(), nullptr);
    EXPECT_EQ(LogAccess::getFlushTimer()->getTimerInterval(), 30000);
    shutdownLog();
    EXPECT_EQ(LogAccess::getFlushTimer(), nullptr);
    EXPECT_EQ(readBytes(logFile),
              "Started logging on 16.11.26 00:43:48\n\n"
              "Started logging on 16.11.26 00:43:48\n\n"
              "\nStopped logging on 16.11.26 00:43:48\n\n");
}

TEST_F(LogLifecycleTest, TheFlushTimerRunsAtTheIntervalOfTheFlag)
{
    writeFlagsFile("logToFile logFlushTime=60000");
    init();
    ASSERT_NE(LogAccess::getFlushTimer(), nullptr);
    EXPECT_EQ(LogAccess::getFlushTimer()->getTimerInterval(), 60000);
    EXPECT_EQ(readBytes(logFile), "");
    LogAccess::getFlushTimer()->timerCallback();
    EXPECT_EQ(readBytes(logFile), "Started logging on 16.11.26 00:43:48\n\n");
    shutdownLog();
    EXPECT_EQ(LogAccess::getFlushTimer(), nullptr);
}

TEST_F(LogLifecycleTest, TheFlushTimerNeedsALogFileAndAPositiveInterval)
{
    for (const auto* text :
         {"logFlushTime=60000", "logToFile logFlushTime=0", "logToFile logFlushTime=-1"})
    {
        flags::logToFile = 0;
        writeFlagsFile(text);
        init();
        EXPECT_EQ(LogAccess::getFlushTimer(), nullptr) << text;
        shutdownLog();
    }
}

TEST_F(LogLifecycleTest, AFlushIntervalBelowOneIsAnErrorAndStartsNoTimer)
{
    for (const auto interval : {0, -1})
    {
        log.clear();
        flags::logFlushTime = interval;
        const Log::LogFlushTimer timer;
        EXPECT_FALSE(timer.isTimerRunning());
        EXPECT_EQ(log.lines(), Lines{"invalid log flush interval"});
    }
}

TEST_F(LogLifecycleTest, JuceLogsThroughTheLogWhenAskedAndAfterShutdownToo)
{
    writeFlagsFile("logJuce logPrefix");
    init();
    log.clear();
    juce::Logger::writeToLog("a message");
    EXPECT_EQ(log.lines(), Lines{"JUCE      : a message"});

    const auto* const logger = juce::Logger::getCurrentLogger();
    EXPECT_NE(dynamic_cast<const JuceLog*>(logger), nullptr);
    shutdownLog();
    EXPECT_EQ(juce::Logger::getCurrentLogger(), logger);
}

TEST_F(LogLifecycleTest, ByDefaultJucesLoggerIsUnchanged)
{
    init();
    EXPECT_EQ(juce::Logger::getCurrentLogger(), nullptr);
}

} // namespace
} // namespace quelta::test
