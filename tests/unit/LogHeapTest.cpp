// Lines are built and written without the heap: the operators that take memory from it are replaced in this
// program, and count.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "log/LogCore.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

namespace {

thread_local int allocations = 0;

void* allocate(std::size_t size)
{
    ++allocations;

    if (auto* const memory = std::malloc(size > 0 ? size : 1))
        return memory;

    throw std::bad_alloc();
}

} // namespace

void* operator new(std::size_t size)
{
    return allocate(size);
}

void* operator new[](std::size_t size)
{
    return allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace quelta::test {
namespace {

int linesSeen = 0;

class LogHeapTest : public testing::Test
{
protected:
    LogHeapTest()
    {
        linesSeen = 0;
        LogCapture::removeAllSinks(); // the capture itself keeps its lines on the heap
        addLogSink([](const char*) { ++linesSeen; });
        flags::logTime = 1;
        flags::logPrefix = 1;
        flags::daemon = 1;
    }

    static void logManyLines()
    {
        for (int i = 0; i < 100; ++i)
        {
            QUELTA_LOG_DAEMON("line %d of %s", i, "many");
            logError("%s", longText.c_str());
            logUnprefixed("%08x", 255u);
            logString("JUCE", finishedText);
        }
    }

    static inline const std::string longText = std::string(200'000, 'x');
    static inline const juce::String finishedText = "a finished text";
    LogCapture log;
};

TEST_F(LogHeapTest, TheCounterCounts)
{
    const auto before = allocations;
    delete new int;
    EXPECT_EQ(allocations - before, 1);
}

TEST_F(LogHeapTest, LinesAreBuiltWithoutTheHeap)
{
    const auto before = allocations;
    logManyLines();
    const auto taken = allocations - before;
    EXPECT_EQ(taken, 0);
    EXPECT_EQ(linesSeen, 400);
}

TEST_F(LogHeapTest, LinesReachAnOpenFileWithoutTheHeap)
{
    flags::logForceFlush = 50;
    const TemporaryFolder folder;
    LogFile file;
    file.setFileName(FileName(folder.getChild("log.txt").getFullPathName().toRawUTF8()));
    file.writeLine("opens the file");

    const auto before = allocations;

    for (int i = 0; i < 100; ++i)
        file.writeLine(longText.c_str());

    const auto taken = allocations - before;
    EXPECT_EQ(taken, 0);
    file.close();
    EXPECT_EQ(folder.getChild("log.txt").getSize(), 15 + 100 * 200'001);
}

} // namespace
} // namespace quelta::test
