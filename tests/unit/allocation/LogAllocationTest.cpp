// Logging a line must not allocate. This program replaces operator new and, by linker options, the
// C library's allocation functions with versions that count. Under a sanitizer, which has operators
// of its own, the tests are skipped.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "log/LogSinks.h"
#include "support/LogCapture.h"
#include "support/StandardStreamCapture.h"
#include "support/TemporaryFolder.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QUELTA_SANITIZER_OPERATORS
#endif
#endif

namespace {

/** Null while no thread is counted. A thread-local counter would not do, since its first use may
    allocate. */
std::atomic<void*> countedThread{nullptr};
std::atomic<int> allocations{0};

void countAllocation()
{
    if (auto* const counted = countedThread.load();
        counted != nullptr && counted == juce::Thread::getCurrentThreadId())
        ++allocations;
}

} // namespace

// The linker redirects calls of malloc, calloc and realloc to __wrap_ functions, and __real_ ones
// to the C library.
extern "C" {

void* __real_malloc(size_t);
void* __real_calloc(size_t, size_t);
void* __real_realloc(void*, size_t);

void* __wrap_malloc(size_t size)
{
    countAllocation();
    return __real_malloc(size);
}

void* __wrap_calloc(size_t count, size_t size)
{
    countAllocation();
    return __real_calloc(count, size);
}

void* __wrap_realloc(void* memory, size_t size)
{
    countAllocation();
    return __real_realloc(memory, size);
}
}

#ifndef QUELTA_SANITIZER_OPERATORS

static void* allocate(std::size_t size)
{
    if (auto* const memory = std::malloc(size > 0 ? size : 1))
        return memory;

    throw std::bad_alloc();
}

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

#endif

namespace quelta::test {
namespace {

template <typename Action>
int countAllocations(Action action)
{
    allocations = 0;
    countedThread = juce::Thread::getCurrentThreadId();
    action();
    countedThread = nullptr;
    return allocations;
}

int linesSeen = 0;

class LogAllocationTest : public testing::Test
{
protected:
    void SetUp() override
    {
#ifdef QUELTA_SANITIZER_OPERATORS
        GTEST_SKIP() << "the operators of a sanitizer do not count";
#endif
        ASSERT_EQ(countAllocations([] { ::operator delete(::operator new(1)); }), 1);
        ASSERT_EQ(countAllocations([] { const juce::HeapBlock<char> block(1); }), 1);
        linesSeen = 0;
        LogCapture::removeAllSinks(); // LogCapture itself allocates
        addLogSink([](const char*) { ++linesSeen; });
        flags::logTime = 1;
        flags::logPrefix = 1;
        flags::daemon = 1;
    }

    const std::string longText = std::string(200'000, 'x');
    const juce::String formattedText = "a formatted text";
    LogCapture log;
};

TEST_F(LogAllocationTest, BuildingALineDoesNotAllocate)
{
    const auto taken = countAllocations([this] {
        for (int i = 0; i < 100; ++i)
        {
            QUELTA_LOG_DAEMON("line %d of %s", i, "many");
            logError("%s", longText.c_str());
            logUnprefixed("%08x", 255u);
            logString("JUCE", formattedText);
        }
    });
    EXPECT_EQ(taken, 0);
    EXPECT_EQ(linesSeen, 400);
}

TEST_F(LogAllocationTest, WritingToAnOpenFileDoesNotAllocate)
{
    flags::logForceFlush = 50;
    const TemporaryFolder folder;
    LogFile file;
    file.setFileName(FileName(folder.getChild("log.txt").getFullPathName().toRawUTF8()));
    file.writeLine("opens the file");

    const auto taken = countAllocations([this, &file] {
        for (int i = 0; i < 100; ++i)
            file.writeLine(longText.c_str());
    });
    EXPECT_EQ(taken, 0);
    file.close();
    EXPECT_EQ(folder.getChild("log.txt").getSize(), 15 + 100 * 200'001);
}

TEST_F(LogAllocationTest, WritingToARedirectedStreamDoesNotAllocate)
{
    for (const auto stream : {1, 2})
    {
        flags::logToStdout = stream;
        StandardStreamCapture capture(stream == 2 ? stderr : stdout);
        writeToConsole("makes the stream take its buffer");

        const auto taken = countAllocations([this] {
            for (int i = 0; i < 100; ++i)
                writeToConsole(longText.c_str());
        });
        capture.stop();
        EXPECT_EQ(taken, 0);
        EXPECT_EQ(capture.getWritten().size(), 33 + 100 * 200'001u);
    }
}

} // namespace
} // namespace quelta::test
