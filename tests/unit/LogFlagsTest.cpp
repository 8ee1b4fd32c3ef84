#include "log/LogFlags.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/LogCapture.h"

namespace quelta::test {
namespace {

using Settings = LogFlagFileSettings;

// Prefix of the names that this test registers, since names cannot be unregistered.
const std::string testNames = "zzTest";

int32_t firstVariable = 5;
int32_t secondVariable = 5;

class LogFlagsTest : public testing::Test
{
protected:
    Settings set(std::string_view text) { return setLogFlagsFromText(text); }

    LogCapture log;
};

TEST_F(LogFlagsTest, EveryFlagIsRegisteredInByteWiseOrder)
{
    Lines names;

    for (const auto& [name, flag] : *getLogFlagRegistry())
        if (!name.starts_with(testNames))
            names.push_back(name);

    EXPECT_EQ(names, (Lines{"daemon", "daemonDetail", "logAppendToFile", "logFlags", "logFlushTime",
                            "logForceFlush", "logJuce", "logPrefix", "logTime", "logToDebugConsole",
                            "logToFile", "logToStdout"}));
}

TEST_F(LogFlagsTest, ARegistrationReturnsZeroAndStoresARecord)
{
    EXPECT_EQ(registerLogFlag(&firstVariable, "\"abc\"", "zzTestRecord", "What it is for."), 0);
    const auto& flag = getLogFlagRegistry()->at("zzTestRecord");
    EXPECT_EQ(flag.name, "zzTestRecord");
    EXPECT_EQ(flag.value, &firstVariable);
    EXPECT_EQ(flag.prefix, "\"abc\"");
    EXPECT_EQ(flag.description, "What it is for.");
    EXPECT_EQ(flag.type, LogFlagType::release);
    EXPECT_EQ(static_cast<int32_t>(flag.type), 1);
}

TEST_F(LogFlagsTest, ALaterRegistrationReplacesAnEarlierOne)
{
    registerLogFlag(&firstVariable, "\"one\"", "zzTestTwice", "First.");
    const auto count = getLogFlagRegistry()->size();
    registerLogFlag(&secondVariable, "\"two\"", "zzTestTwice", "Second.");
    EXPECT_EQ(getLogFlagRegistry()->size(), count);
    EXPECT_EQ(getLogFlagRegistry()->at("zzTestTwice").value, &secondVariable);
    EXPECT_EQ(getLogFlagRegistry()->at("zzTestTwice").prefix, "\"two\"");
    EXPECT_EQ(getLogFlagRegistry()->at("zzTestTwice").description, "Second.");
}

TEST_F(LogFlagsTest, APrefixOfMoreThanTwelveCharactersIsTruncatedAndQuoted)
{
    const auto stored = [](const char* prefix) {
        registerLogFlag(&firstVariable, prefix, "zzTestPrefix", "");
        return getLogFlagRegistry()->at("zzTestPrefix").prefix;
    };

    EXPECT_EQ(stored("\"abcdefghij\""), "\"abcdefghij\""); // twelve characters
    EXPECT_EQ(stored("\"abcdefghijk\""), "\"abcdefghij\"");
    EXPECT_EQ(stored("0123456789abc"), "0123456789a\"");
    EXPECT_EQ(stored("0123456789abcdefghijklmnop"), "0123456789a\"");
}

TEST_F(LogFlagsTest, SettingARegisteredNameWritesItsVariable)
{
    setLogFlag("daemonDetail", -2147483647 - 1);
    EXPECT_EQ(flags::daemonDetail, std::numeric_limits<int32_t>::min());
    EXPECT_EQ(flags::daemon, 0);
}

TEST_F(LogFlagsTest, SettingAnUnknownNameDoesNothing)
{
    const auto count = getLogFlagRegistry()->size();
    setLogFlag("Daemon", 1);
    setLogFlag("", 1);
    EXPECT_EQ(getLogFlagRegistry()->size(), count);
    EXPECT_EQ(flags::daemon, 0);
}

TEST_F(LogFlagsTest, ANameWithOrWithoutEqualsSignOrAloneSetsAFlag)
{
    for (const auto* text :
         {"daemon=1", "daemon 1", "daemon", "daemon = 1", "\tdaemon\r\n", "daemon=\n1"})
    {
        flags::daemon = 0;
        EXPECT_EQ(set(text), (Settings{{"daemon", 1}})) << text;
        EXPECT_EQ(flags::daemon, 1) << text;
    }

    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(LogFlagsTest, OneLineMaySetManyFlags)
{
    EXPECT_EQ(set("logToStdout=2 logTime logPrefix"),
              (Settings{{"logToStdout", 2}, {"logTime", 1}, {"logPrefix", 1}}));
    EXPECT_EQ(flags::logToStdout, 2);
    EXPECT_EQ(flags::logTime, 1);
    EXPECT_EQ(flags::logPrefix, 1);
}

TEST_F(LogFlagsTest, EveryKindOfLineEndIsAccepted)
{
    set("daemon=2\r\nlogTime=3\rlogPrefix=4\nlogJuce");
    EXPECT_EQ(flags::daemon, 2);
    EXPECT_EQ(flags::logTime, 3);
    EXPECT_EQ(flags::logPrefix, 4);
    EXPECT_EQ(flags::logJuce, 1);
}

TEST_F(LogFlagsTest, AValueMayBeNegativeOrZero)
{
    set("daemon=-1 daemonDetail=-17 logTime=0");
    EXPECT_EQ(flags::daemon, -1);
    EXPECT_EQ(flags::daemonDetail, -17);
    EXPECT_EQ(flags::logTime, 0);
}

TEST_F(LogFlagsTest, AValueIsReadUpToAMinusSignInside)
{
    set("daemon=1-2 daemonDetail=- logTime=--5 logPrefix=7-");
    EXPECT_EQ(flags::daemon, 1);
    EXPECT_EQ(flags::daemonDetail, 0);
    EXPECT_EQ(flags::logTime, 0);
    EXPECT_EQ(flags::logPrefix, 7);
}

TEST_F(LogFlagsTest, AValueOfMoreThan32BitsSaturates)
{
    set("daemon=99999999999 daemonDetail=-99999999999 logTime=4294967296 "
        "logPrefix=99999999999999999999999999999999");
    EXPECT_EQ(flags::daemon, 2147483647);
    EXPECT_EQ(flags::daemonDetail, std::numeric_limits<int32_t>::min());
    EXPECT_EQ(flags::logTime, 2147483647);
    EXPECT_EQ(flags::logPrefix, 2147483647);
}

TEST_F(LogFlagsTest, AWordThatIsNotANumberIsAName)
{
    EXPECT_EQ(
        set("logFlushTime=1000ms daemon=+1 logTime"),
        (Settings{{"logFlushTime", 1}, {"1000ms", 1}, {"daemon", 1}, {"+1", 1}, {"logTime", 1}}));
    EXPECT_EQ(flags::logFlushTime, 1);
    EXPECT_EQ(flags::daemon, 1);
    EXPECT_EQ(flags::logTime, 1);
}

TEST_F(LogFlagsTest, ANumberInPlaceOfANameIsAnUnknownName)
{
    EXPECT_EQ(set("5 6 7 daemon=3"), (Settings{{"5", 6}, {"7", 1}, {"daemon", 3}}));
    EXPECT_EQ(flags::daemon, 3);
}

TEST_F(LogFlagsTest, QuotesArePartOfTheWordAndMatchNoFlag)
{
    EXPECT_EQ(set("\"daemon\"=1 \"log Time\" 2 log\"Pre\"fix \"daemonDetail\n1\""),
              (Settings{{"\"daemon\"", 1},
                        {"\"log Time\"", 2},
                        {"log\"Pre\"fix", 1},
                        {"\"daemonDetail\n1\"", 1}}));
    EXPECT_EQ(flags::daemon, 0);
    EXPECT_EQ(flags::logTime, 0);
    EXPECT_EQ(flags::logPrefix, 0);
    EXPECT_EQ(flags::daemonDetail, 0);
}

TEST_F(LogFlagsTest, AnEqualsSignInsideQuotesBecomesABlank)
{
    EXPECT_EQ(set("\"a=b\"=2"), (Settings{{"\"a b\"", 2}}));
}

TEST_F(LogFlagsTest, AnUnclosedQuoteExtendsToTheEnd)
{
    EXPECT_EQ(set("logTime \"daemon=1 logPrefix"),
              (Settings{{"logTime", 1}, {"\"daemon 1 logPrefix", 1}}));
    EXPECT_EQ(flags::daemon, 0);
}

TEST_F(LogFlagsTest, AQuotedNumberIsNotAValue)
{
    EXPECT_EQ(set("daemon=\"5\""), (Settings{{"daemon", 1}, {"\"5\"", 1}}));
}

TEST_F(LogFlagsTest, TheLastSettingOfAFlagWinsButTheTableKeepsTheFirst)
{
    EXPECT_EQ(set("daemon=1 daemon=2 daemon=3"), (Settings{{"daemon", 1}}));
    EXPECT_EQ(flags::daemon, 3);
}

TEST_F(LogFlagsTest, NamesAreCaseSensitive)
{
    set("Daemon LOGTIME=1");
    EXPECT_EQ(flags::daemon, 0);
    EXPECT_EQ(flags::logTime, 0);
}

TEST_F(LogFlagsTest, ATextWithoutWordsSetsNothing)
{
    EXPECT_EQ(set(""), Settings{});
    EXPECT_EQ(set(" \t\r\n == \v \f ="), Settings{});
}

/** The table with two flags changed, as it is logged. */
constexpr auto flagTable = R"(
Flag                      Type    Value      Prefix       Description
------------------------- ------- ---------- ------------ --------------------------------------------------------------------------------
daemon                    release -2147483648 "daemon"     Enables general logging of the slave daemon.
daemonDetail              release 0          "daemon"     Enables detailed logging of the slave daemon.
logAppendToFile           release 0          ""           If enabled, logging will be to the already existing log file appended
logFlags                  release 1          ""           If enabled, all log flags will be dumped during startup
logFlushTime              release 0          ""           The time (ms) after which the log is flushed. If set to 0, the timer based flush will be disabled.
logForceFlush             release 0          ""           If enabled, every logged line will be flushed
logJuce                   release 0          "JUCE"       If enabled, JUCE logging will go through the logging framework of Quelta
logPrefix                 release 0          ""           If enabled, each log line will have a prefix
logTime                   release 0          ""           If enabled, each log line will have a timestamp
logToDebugConsole         release 0          ""           If enabled, logging will go to the debug console (Windows only)
logToFile                 release 0          ""           If enabled, logging will go to a log file
logToStdout               release 2          ""           If enabled, logging will go to standard out (when set to 1) or standard error (when set to 2)
)";

TEST_F(LogFlagsTest, TheTableShowsEveryFlagInOrder)
{
    flags::logFlags = 1;
    flags::logToStdout = 2;
    flags::daemon = -2147483647 - 1;
    dumpLogFlags();
    auto lines = log.lines();
    std::erase_if(lines, [](const auto& line) { return line.starts_with(testNames); });
    std::string table;

    for (const auto& line : lines)
        table += line + "\n";

    EXPECT_EQ(table, flagTable);
}

TEST_F(LogFlagsTest, RowsOfTheTableHaveAnEmptyPrefixField)
{
    flags::logPrefix = 1;
    dumpLogFlags();
    EXPECT_EQ(log.lines()[0], "            ");
    EXPECT_EQ(log.lines()[1],
              "            Flag                      Type    Value      Prefix       Description");
}

} // namespace
} // namespace quelta::test
