#include "util/StopDeadline.h"

#include <gtest/gtest.h>

#include "support/FakeAwakeClock.h"

namespace quelta::test {
namespace {

class StopDeadlineTest : public testing::Test
{
protected:
    ~StopDeadlineTest() override { setStopDeadline({}); }

    FakeAwakeClock clock{0};
};

TEST_F(StopDeadlineTest, WithoutADeadlineNonePasses)
{
    clock.advance(1'000'000'000'000);
    EXPECT_FALSE(hasStopDeadlinePassed());
}

TEST_F(StopDeadlineTest, TheDeadlinePassesAtItsMoment)
{
    setStopDeadline(5'000);
    clock.advance(4'999);
    EXPECT_FALSE(hasStopDeadlinePassed());
    clock.advance(1);
    EXPECT_TRUE(hasStopDeadlinePassed());
}

TEST_F(StopDeadlineTest, TheDeadlineCanBeRemoved)
{
    setStopDeadline(5'000);
    setStopDeadline({});
    clock.advance(6'000);
    EXPECT_FALSE(hasStopDeadlinePassed());
}

} // namespace
} // namespace quelta::test
