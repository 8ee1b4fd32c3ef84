#include "exec_slave/MessageSchedule.h"

#include <gtest/gtest.h>

#include <string>

namespace quelta::execslave {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

/** The name of the message that is due; empty if none is. */
std::string take(MessageSchedule& schedule, milliseconds now)
{
    const auto message = schedule.take(now);
    return message ? SlaveDaemonMessage::getTypeName(message->type) : "";
}

TEST(ExecSlaveMessageScheduleTest, AuthenticatingGoesOutAtOnceAndEverySecond)
{
    MessageSchedule schedule;
    EXPECT_EQ(take(schedule, 5000ms), "AUTHENTICATING");
    EXPECT_EQ(take(schedule, 5000ms), "");
    EXPECT_EQ(schedule.timeToNext(5400ms), 600ms);
    EXPECT_EQ(take(schedule, 5999ms), "");
    EXPECT_EQ(take(schedule, 6000ms), "AUTHENTICATING");
}

TEST(ExecSlaveMessageScheduleTest, TheInformationGoesOutAtOnceWithItsNumbers)
{
    MessageSchedule schedule;
    take(schedule, 0ms);
    schedule.announce(4000123, 2);
    EXPECT_EQ(schedule.timeToNext(10ms), 0ms);

    const auto message = schedule.take(10ms);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->type, SlaveMessageType::SLAVE_INFO);
    EXPECT_EQ(message->slaveVersion, 4000123u);
    EXPECT_EQ(message->numGpus, 2u);
}

TEST(ExecSlaveMessageScheduleTest, TheFirstHeartbeatFollowsTheInformationByASecond)
{
    MessageSchedule schedule;
    take(schedule, 0ms);
    schedule.announce(1, 1);
    EXPECT_EQ(take(schedule, 900ms), "SLAVE_INFO");
    EXPECT_EQ(take(schedule, 1899ms), "");
    EXPECT_EQ(take(schedule, 1900ms), "SLAVE_STATUS");
    EXPECT_EQ(take(schedule, 2900ms), "SLAVE_STATUS");
}

TEST(ExecSlaveMessageScheduleTest, NoHeartbeatGoesOutWhileTheProgramIsNotAlive)
{
    MessageSchedule schedule;
    schedule.announce(1, 1);
    take(schedule, 0ms);
    schedule.setAlive(false);
    EXPECT_EQ(schedule.timeToNext(5000ms), std::nullopt);
    EXPECT_EQ(take(schedule, 5000ms), "");
    schedule.setAlive(true);
    EXPECT_EQ(take(schedule, 5000ms), "SLAVE_STATUS");
}

TEST(ExecSlaveMessageScheduleTest, TheInformationGoesOutEvenIfTheProgramIsNotAlive)
{
    MessageSchedule schedule;
    schedule.setAlive(false);
    EXPECT_EQ(take(schedule, 0ms), "AUTHENTICATING");
    schedule.announce(1, 1);
    EXPECT_EQ(take(schedule, 1ms), "SLAVE_INFO");
}

} // namespace
} // namespace quelta::execslave
