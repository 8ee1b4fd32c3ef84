#include "util/Timing.h"

#include <gtest/gtest.h>

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

} // namespace
} // namespace quelta::test
