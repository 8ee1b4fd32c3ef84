#include <gtest/gtest.h>

#include <utility>

#include "log/LogSinks.h"
#include "platform/Console.h"
#include "support/DebugOutputCapture.h"
#include "support/LogCapture.h"
#include "support/StandardStreamCapture.h"

namespace quelta::test {
namespace {

using namespace std::string_literals;
using platform::StandardStream;

std::string calls;

template <char letter>
void noteCall(const char* line)
{
    calls += letter;
    calls += line;
    calls += ' ';
}

template <size_t... numbers>
std::vector<LogSink> makeSinks(std::index_sequence<numbers...>)
{
    return {noteCall<static_cast<char>('a' + numbers)>...};
}

class LogSinkTableTest : public testing::Test
{
protected:
    LogSinkTableTest()
    {
        calls.clear();
        LogCapture::removeAllSinks();
    }

    const std::vector<LogSink> sinks = makeSinks(std::make_index_sequence<17>());
    LogCapture log;
};

TEST_F(LogSinkTableTest, WithoutSinksLinesAreDropped)
{
    logError("x");
    EXPECT_EQ(calls, "");
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(LogSinkTableTest, SinksAreCalledInTheOrderInWhichTheyWereAdded)
{
    EXPECT_TRUE(addLogSink(sinks[2]));
    EXPECT_TRUE(addLogSink(sinks[0]));
    EXPECT_TRUE(addLogSink(sinks[1]));
    logUnprefixed("1");
    logUnprefixed("2");
    EXPECT_EQ(calls, "c1 a1 b1 c2 a2 b2 ");
}

TEST_F(LogSinkTableTest, ANullSinkIsRefused)
{
    EXPECT_FALSE(addLogSink(nullptr));
    logUnprefixed("1");
    EXPECT_EQ(calls, "");
}

TEST_F(LogSinkTableTest, ASinkIsAddedOnlyOnce)
{
    EXPECT_TRUE(addLogSink(sinks[0]));
    EXPECT_TRUE(addLogSink(sinks[0]));
    logUnprefixed("1");
    EXPECT_EQ(calls, "a1 ");
}

TEST_F(LogSinkTableTest, SixteenSinksAreTheLimit)
{
    for (size_t i = 0; i < 16; ++i)
        EXPECT_TRUE(addLogSink(sinks[i]));

    EXPECT_FALSE(addLogSink(sinks[16]));
    EXPECT_FALSE(addLogSink(sinks[3])); // even one that is in the table
    logUnprefixed("1");
    EXPECT_EQ(calls, "a1 b1 c1 d1 e1 f1 g1 h1 i1 j1 k1 l1 m1 n1 o1 p1 ");
}

TEST_F(LogSinkTableTest, TheDebugSinkSendsEachLineToTheDebuggerOrTheSystemLog)
{
    const DebugOutputCapture capture;
    addLogSink(writeToDebugConsole);
    logUnprefixed("100 %% of it");
    logUnprefixed("%%s is no format");
    EXPECT_EQ(DebugOutputCapture::getReceived(), "100 % of it\n%s is no format\n");
}

/** A console that records the calls. */
class RecordedConsole final : public platform::Console
{
public:
    bool isRealConsole(StandardStream stream) override
    {
        asked.push_back(stream);
        return isReal;
    }

    void write(StandardStream stream, std::u16string_view text) override
    {
        written.emplace_back(stream, text);
    }

    using Writes = std::vector<std::pair<StandardStream, std::u16string>>;

    bool isReal = true;
    std::vector<StandardStream> asked;
    Writes written;
};

class LogConsoleTest : public testing::Test
{
protected:
    LogConsoleTest()
    {
        platform::setConsole(&console);
        LogCapture::removeAllSinks();
        addLogSink(writeToConsole);
        flags::logToStdout = 1;
    }

    ~LogConsoleTest() override { platform::setConsole(nullptr); }

    LogCapture log;
    RecordedConsole console;
};

TEST_F(LogConsoleTest, ARealConsoleReceivesTheLineWithItsNulAndThenTheLineEnd)
{
    logUnprefixed("hi");
    EXPECT_EQ(console.written, (RecordedConsole::Writes{{StandardStream::output, u"hi\0"s},
                                                        {StandardStream::output, u"\n"}}));
}

TEST_F(LogConsoleTest, AnEmptyLineOnARealConsoleIsANulAndTheLineEnd)
{
    logUnprefixed("%s", "");
    EXPECT_EQ(console.written, (RecordedConsole::Writes{{StandardStream::output, u"\0"s},
                                                        {StandardStream::output, u"\n"}}));
}

TEST_F(LogConsoleTest, ARealConsoleReceivesUtf16)
{
    logUnprefixed("%s", "M\xC3\xBCller \xE2\x82\xAC \xF0\x9F\x98\x80");
    EXPECT_EQ(console.written.at(0).second, u"M\u00FCller \u20AC \xD83D\xDE00\0"s);
}

TEST_F(LogConsoleTest, TheStreamIsChosenForEachLine)
{
    logUnprefixed("1");
    flags::logToStdout = 2;
    logUnprefixed("2");
    flags::logToStdout = 3;
    logUnprefixed("3");
    EXPECT_EQ(console.asked,
              (std::vector{StandardStream::output, StandardStream::error, StandardStream::output}));
    EXPECT_EQ(console.written, (RecordedConsole::Writes{{StandardStream::output, u"1\0"s},
                                                        {StandardStream::output, u"\n"},
                                                        {StandardStream::error, u"2\0"s},
                                                        {StandardStream::error, u"\n"},
                                                        {StandardStream::output, u"3\0"s},
                                                        {StandardStream::output, u"\n"}}));
}

TEST_F(LogConsoleTest, RedirectedStandardOutputReceivesEachLineAtOnce)
{
    console.isReal = false;
    StandardStreamCapture output(stdout);
    logUnprefixed("%s", "M\xC3\xBCller");
    const auto afterFirst = output.getWritten();
    logUnprefixed("%s", "");
    logUnprefixed("two\nlines");
    const auto afterThird = output.getWritten();
    output.stop();

    EXPECT_EQ(afterFirst, "M\xC3\xBCller\n");
    EXPECT_EQ(afterThird, "M\xC3\xBCller\n\ntwo\nlines\n");
    EXPECT_EQ(console.written, RecordedConsole::Writes{});
}

TEST_F(LogConsoleTest, RedirectedStandardErrorReceivesEachLineAtOnce)
{
    console.isReal = false;
    flags::logToStdout = 2;
    StandardStreamCapture output(stdout);
    StandardStreamCapture error(stderr);
    logUnprefixed("one");
    const auto afterFirst = error.getWritten();
    logError("two");
    const auto afterSecond = error.getWritten();
    error.stop();
    output.stop();

    EXPECT_EQ(afterFirst, "one\n");
    EXPECT_EQ(afterSecond, "one\ntwo\n");
    EXPECT_EQ(output.getWritten(), "");
}

TEST_F(LogConsoleTest, AFileIsNotARealConsole)
{
    platform::setConsole(nullptr);
    StandardStreamCapture output(stdout);
    logUnprefixed("x");
    output.stop();
    EXPECT_EQ(output.getWritten(), "x\n");
}

TEST_F(LogConsoleTest, TheConversionToUtf16KeepsTheNul)
{
    EXPECT_EQ(platform::toTerminatedUtf16("M\xC3\xBC"), u"M\u00FC\0"s);
    EXPECT_EQ(platform::toTerminatedUtf16(""), u"\0"s);
}

TEST_F(LogConsoleTest, InvalidUtf8DoesNoHarm)
{
    logUnprefixed("%s", "a\xFF\xC3");
    ASSERT_EQ(console.written.size(), 2u);
    EXPECT_EQ(console.written[0].second.front(), u'a');
    EXPECT_EQ(console.written[0].second.back(), u'\0');
}

} // namespace
} // namespace quelta::test
