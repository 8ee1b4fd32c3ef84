#include "platform/AwakeClock.h"

#include <gtest/gtest.h>

#include <juce_core/juce_core.h>

namespace quelta::test {
namespace {

/** The pause is measured just inside and just outside, so its real length does not matter. */
TEST(AwakeClockTest, CountsMilliseconds)
{
    constexpr double resolutionMs = 20; // Windows advances the clock every 15.6 ms

    const auto outerBegin = juce::Time::getMillisecondCounterHiRes();
    const auto first = platform::getAwakeMilliseconds();
    const auto innerBegin = juce::Time::getMillisecondCounterHiRes();
    juce::Thread::sleep(300);
    const auto innerEnd = juce::Time::getMillisecondCounterHiRes();
    const auto last = platform::getAwakeMilliseconds();
    const auto outerEnd = juce::Time::getMillisecondCounterHiRes();

    const auto counted = static_cast<double>(last - first);
    EXPECT_GE(counted, innerEnd - innerBegin - resolutionMs);
    EXPECT_LE(counted, outerEnd - outerBegin + resolutionMs);
}

TEST(AwakeClockTest, TestsCanReplaceTheClock)
{
    platform::setAwakeClock([] { return int64_t{42}; });
    EXPECT_EQ(platform::getAwakeMilliseconds(), 42);
    platform::setAwakeClock(nullptr);
    EXPECT_NE(platform::getAwakeMilliseconds(), 42);
}

} // namespace
} // namespace quelta::test
