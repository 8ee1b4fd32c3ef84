#include "farm_view/RequestLimiter.h"

#include <gtest/gtest.h>

namespace quelta::farmview {

namespace {

using namespace std::chrono_literals;

class FarmViewLimiter : public testing::Test
{
protected:
    /** Makes requests until one is refused; returns the number of those admitted. */
    int countAdmitted(uint32_t client)
    {
        int count = 0;

        while (count < 1000 && limiter.admit(client, now))
            ++count;

        return count;
    }

    RequestLimiter limiter;
    RequestLimiter::Clock::time_point now{};
};

TEST_F(FarmViewLimiter, AdmitsABurstThenARate)
{
    EXPECT_EQ(countAdmitted(1), 200);
    now += 1s;
    EXPECT_EQ(countAdmitted(1), 50);
    now += 10ms;
    EXPECT_EQ(countAdmitted(1), 0);
    now += 10ms;
    EXPECT_EQ(countAdmitted(1), 1);
    now += 1h;
    EXPECT_EQ(countAdmitted(1), 200);
}

TEST_F(FarmViewLimiter, LimitsEachClientOnItsOwn)
{
    EXPECT_EQ(countAdmitted(1), 200);
    EXPECT_EQ(countAdmitted(2), 200);
}

TEST_F(FarmViewLimiter, ForgetsClientsThatMayBurstAgain)
{
    EXPECT_EQ(countAdmitted(1), 200);
    limiter.admit(2, now);
    now += 3999ms;
    limiter.expire(now);
    EXPECT_EQ(limiter.countClients(), 1U);
    now += 1ms;
    limiter.expire(now);
    EXPECT_EQ(limiter.countClients(), 0U);
}

} // namespace

} // namespace quelta::farmview
