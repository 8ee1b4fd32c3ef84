#include "exec_slave/StopSequence.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using namespace std::chrono_literals;

TEST(ExecSlaveStopSequenceTest, NothingHappensBeforeTheStop)
{
    StopSequence stop(true, 9s);
    EXPECT_EQ(stop.next(100s, false), StopStep::none);
    EXPECT_EQ(stop.timeToNext(100s), std::nullopt);
}

TEST(ExecSlaveStopSequenceTest, WithoutACommandTheSignalComesAtOnceAndForceAfterTheGracePeriod)
{
    StopSequence stop(false, 9s);
    stop.begin(100s);
    EXPECT_EQ(stop.timeToNext(100s), 0s);
    EXPECT_EQ(stop.next(100s, false), StopStep::signal);
    EXPECT_EQ(stop.next(100s, false), StopStep::none);
    EXPECT_EQ(stop.timeToNext(101s), 8s);
    EXPECT_EQ(stop.next(108999ms, false), StopStep::none);
    EXPECT_EQ(stop.next(109s, false), StopStep::kill);
    EXPECT_EQ(stop.next(200s, false), StopStep::none);
    EXPECT_EQ(stop.timeToNext(200s), std::nullopt);
}

TEST(ExecSlaveStopSequenceTest, ACommandHasHalfOfTheGracePeriod)
{
    StopSequence stop(true, 9s);
    stop.begin(0s);
    EXPECT_EQ(stop.next(0s, false), StopStep::runCommand);
    EXPECT_EQ(stop.timeToNext(0s), 4500ms);
    EXPECT_EQ(stop.next(4499ms, false), StopStep::none);
    EXPECT_EQ(stop.next(4500ms, false), StopStep::signal);
    EXPECT_EQ(stop.timeToNext(4500ms), 4500ms);
    EXPECT_EQ(stop.next(9s, false), StopStep::kill);
}

TEST(ExecSlaveStopSequenceTest, ACommandThatFailsIsFollowedByTheSignalAtOnce)
{
    StopSequence stop(true, 9s);
    stop.begin(0s);
    EXPECT_EQ(stop.next(0s, false), StopStep::runCommand);
    EXPECT_EQ(stop.next(10ms, true), StopStep::signal);
    EXPECT_EQ(stop.next(20ms, true), StopStep::none);
}

TEST(ExecSlaveStopSequenceTest, ASecondRequestDoesNotProlongTheStop)
{
    StopSequence stop(false, 9s);
    stop.begin(0s);
    EXPECT_EQ(stop.next(0s, false), StopStep::signal);
    stop.begin(8s);
    EXPECT_EQ(stop.next(9s, false), StopStep::kill);
}

TEST(ExecSlaveStopSequenceTest, TheGracePeriodCanOnlyBecomeShorter)
{
    StopSequence stop(false, 5s);
    stop.limitGrace(7s);
    EXPECT_EQ(stop.getGrace(), 5s);
    stop.limitGrace(3500ms);
    EXPECT_EQ(stop.getGrace(), 3500ms);
    stop.begin(0s);
    EXPECT_EQ(stop.next(0s, false), StopStep::signal);
    EXPECT_EQ(stop.next(3500ms, false), StopStep::kill);
}

} // namespace
} // namespace quelta::execslave
