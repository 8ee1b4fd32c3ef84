#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <mutex>
#include <thread>

#include "support/LogCapture.h"

namespace quelta::test {
namespace {

constexpr int linesPerThread = 2000;

// Two sinks that write byte by byte into unguarded texts. Lines written concurrently would mix, and
// the thread sanitizer would report a race.
std::string firstText;
std::string secondText;

template <std::string& text>
void writeByteByByte(const char* line)
{
    for (; *line != '\0'; ++line)
        text += *line;

    text += '\n';
}

void logLines(char letter, size_t length)
{
    const std::string text(length, letter);

    for (int i = 0; i < linesPerThread; ++i)
        if (i % 2 == 0)
            logUnprefixed("%s %d", text.c_str(), i);
        else
            logString("", text + " " + std::to_string(i));
}

Lines expectedLines(char letter, size_t length)
{
    Lines lines;

    for (int i = 0; i < linesPerThread; ++i)
        lines.push_back(std::string(length, letter) + " " + std::to_string(i));

    return lines;
}

/** The lines that begin with the letter, in order. */
Lines linesOf(char letter, const Lines& lines)
{
    Lines found;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
                 [letter](const auto& line) { return line[0] == letter; });
    return found;
}

TEST(LogThreadsTest, LinesOfTwoThreadsNeverMixAndEverySinkSeesTheSameOrder)
{
    LogCapture log;
    firstText.clear();
    secondText.clear();
    addLogSink(writeByteByByte<firstText>);
    addLogSink(writeByteByByte<secondText>);

    std::thread other(logLines, 'a', 3);
    logLines('b', 400);
    other.join();

    std::string captured;

    for (const auto& line : log.lines())
        captured += line + "\n";

    EXPECT_EQ(log.lines().size(), 2u * linesPerThread);
    EXPECT_EQ(linesOf('a', log.lines()), expectedLines('a', 3));
    EXPECT_EQ(linesOf('b', log.lines()), expectedLines('b', 400));
    EXPECT_EQ(firstText == captured, true); // not printed: megabytes
    EXPECT_EQ(secondText == captured, true);
}

TEST(LogThreadsTest, ASinkMayLog)
{
    LogCapture log;
    addLogSink([](const char* line) {
        if (*line != '>')
            logUnprefixed("> %s", line);
    });
    logUnprefixed("x");
    EXPECT_EQ(log.lines(), (Lines{"x", "> x"}));
}

TEST(LogThreadsTest, AnExceptionFromASinkReleasesTheLock)
{
    LogCapture log;
    addLogSink([](const char*) { throw 5; });
    EXPECT_THROW(logUnprefixed("x"), int);

    auto other = std::async(std::launch::async, flushLog);
    const bool isFree = other.wait_for(LogCapture::hangLimit) == std::future_status::ready;
    EXPECT_TRUE(isFree);

    if (!isFree)
        LogAccess::getLock().unlock(); // lets the other thread end
}

TEST(LogThreadsTest, OtherThreadsWaitWhileALineIsWritten)
{
    LogCapture log;
    std::promise<void> begun;
    std::thread other;

    {
        const std::scoped_lock sl(LogAccess::getLock());
        other = std::thread([&begun] {
            begun.set_value();
            logUnprefixed("second");
        });
        begun.get_future().wait();
        logUnprefixed("first");
    }

    other.join();
    EXPECT_EQ(log.lines(), (Lines{"first", "second"}));
}

} // namespace
} // namespace quelta::test
