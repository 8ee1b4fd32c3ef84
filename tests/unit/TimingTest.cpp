#include "util/Timing.h"

#include <gtest/gtest.h>

#include "app/SlaveJudgement.h"

namespace quelta::test {
namespace {

/** Masters, slaves and administrators rely on these values, and end-to-end tests cannot measure
    them all. */
TEST(TimingTest, IntervalsAndTimeoutsAreAsDocumented)
{
    EXPECT_EQ(timing::tickMs, 500);
    EXPECT_EQ(timing::connectTimeoutMs, 1000);
    EXPECT_EQ(timing::discoveryPollMs, 100);
    EXPECT_EQ(timing::slavePollMs, 100);
    EXPECT_EQ(timing::informationPollMs, 100);
    EXPECT_EQ(timing::failureNotificationPollMs, 100);
}

TEST(TimingTest, TimeLimitsOfSlavesAreAsDocumented)
{
    const SlaveTimeLimits limits;
    EXPECT_EQ(limits.startup, 10'000u);
    EXPECT_EQ(limits.afterInitialisation, 4'000u);
    EXPECT_EQ(limits.heartBeat, 10'000u);
    EXPECT_EQ(limits.gracefulStop, 12'000u);
}

} // namespace
} // namespace quelta::test
