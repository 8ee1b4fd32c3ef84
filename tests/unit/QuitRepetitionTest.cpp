#include "util/QuitRepetition.h"

#include <gtest/gtest.h>

namespace quelta::test {
namespace {

TEST(QuitRepetitionTest, TheFirstSignalRequestsAnOrderlyEnd)
{
    EXPECT_EQ(judgeQuitSignal(noQuitYet, 0), QuitEffect::quit);
    EXPECT_EQ(judgeQuitSignal(noQuitYet, 123'456'789), QuitEffect::quit);
}

TEST(QuitRepetitionTest, AnotherWithinASecondIsTheSameRequest)
{
    EXPECT_EQ(judgeQuitSignal(0, 0), QuitEffect::none);
    EXPECT_EQ(judgeQuitSignal(5'000, 5'001), QuitEffect::none);
    EXPECT_EQ(judgeQuitSignal(5'000, 6'000), QuitEffect::none);
}

TEST(QuitRepetitionTest, ALaterSignalEndsAtOnce)
{
    EXPECT_EQ(judgeQuitSignal(5'000, 6'001), QuitEffect::endAtOnce);
    EXPECT_EQ(judgeQuitSignal(0, 86'400'000), QuitEffect::endAtOnce);
}

} // namespace
} // namespace quelta::test
