#include "exec_slave/Readiness.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using namespace std::chrono_literals;

ReadyCondition onLine()
{
    ReadyCondition condition;
    condition.line = "^online";
    condition.timeout = 10s;
    return condition;
}

TEST(ExecSlaveReadinessTest, WithoutAConditionAgeDecides)
{
    ReadyCondition condition;
    condition.after = 500ms;
    EXPECT_EQ(judgeReadiness(condition, 499ms, false), Readiness::waiting);
    EXPECT_EQ(timeToReadinessChange(condition, 499ms), 1ms);
    EXPECT_EQ(judgeReadiness(condition, 500ms, false), Readiness::ready);
}

TEST(ExecSlaveReadinessTest, WithoutAConditionNothingTimesOut)
{
    ReadyCondition condition;
    condition.after = 90s;
    condition.timeout = 60s;
    EXPECT_EQ(judgeReadiness(condition, 70s, false), Readiness::waiting);
    EXPECT_EQ(judgeReadiness(condition, 90s, false), Readiness::ready);
}

TEST(ExecSlaveReadinessTest, AConditionDecidesAtAnyAge)
{
    EXPECT_EQ(judgeReadiness(onLine(), 600ms, false), Readiness::waiting);
    EXPECT_EQ(judgeReadiness(onLine(), 0ms, true), Readiness::ready);
    EXPECT_EQ(judgeReadiness(onLine(), 20s, true), Readiness::ready);
}

TEST(ExecSlaveReadinessTest, AConditionHasItsTimeLimit)
{
    EXPECT_EQ(judgeReadiness(onLine(), 9999ms, false), Readiness::waiting);
    EXPECT_EQ(timeToReadinessChange(onLine(), 9s), 1s);
    EXPECT_EQ(judgeReadiness(onLine(), 10s, false), Readiness::timedOut);
    EXPECT_EQ(timeToReadinessChange(onLine(), 11s), 0s);
}

TEST(ExecSlaveReadinessTest, ThePortAndTheCommandAreConditions)
{
    ReadyCondition byPort;
    byPort.tcp = "127.0.0.1:8000";
    EXPECT_EQ(judgeReadiness(byPort, 1s, false), Readiness::waiting);
    ReadyCondition byCommand;
    byCommand.command = {"check"};
    EXPECT_EQ(judgeReadiness(byCommand, 1s, false), Readiness::waiting);
}

TEST(ExecSlaveReadinessTest, TheTimeOutNamesWhatWasExpected)
{
    EXPECT_EQ(describeNotReady(onLine(), ""),
              "the program was not ready within 10 s: no line of its output matched '^online'");

    ReadyCondition byPort;
    byPort.tcp = "127.0.0.1:8000";
    byPort.timeout = 1500ms;
    EXPECT_EQ(describeNotReady(byPort, "cannot connect to 127.0.0.1:8000: Connection refused"),
              "the program was not ready within 1.5 s: cannot connect to 127.0.0.1:8000: "
              "Connection refused");
    EXPECT_EQ(describeNotReady(byPort, ""), "the program was not ready within 1.5 s");
}

} // namespace
} // namespace quelta::execslave
