#include "platform/AwakeClock.h"

#include <gtest/gtest.h>

#include <juce_core/juce_core.h>

namespace quelta::test {
namespace {

TEST(AwakeClockTest, ItCountsMilliseconds)
{
    const auto begin = juce::Time::getMillisecondCounterHiRes();
    const auto first = platform::getAwakeMilliseconds();
    juce::Thread::sleep(300);
    const auto last = platform::getAwakeMilliseconds();
    const auto end = juce::Time::getMillisecondCounterHiRes();
    EXPECT_GE(last - first, 280); // Windows advances it every 15.6 ms
    EXPECT_LE(static_cast<double>(last - first), end - begin + 20);
}

TEST(AwakeClockTest, ATestCanReplaceIt)
{
    platform::setAwakeClock([] { return int64_t{42}; });
    EXPECT_EQ(platform::getAwakeMilliseconds(), 42);
    platform::setAwakeClock(nullptr);
    EXPECT_NE(platform::getAwakeMilliseconds(), 42);
}

} // namespace
} // namespace quelta::test
