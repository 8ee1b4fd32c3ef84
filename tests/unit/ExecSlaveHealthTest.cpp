#include "exec_slave/Health.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using namespace std::chrono_literals;

const HealthObservation healthy;
const HealthObservation portFails{"cannot connect to 127.0.0.1:1: refused", "", 0s};
const HealthObservation commandFails{"", "the command check ended with exit status 1", 0s};

HealthObservation silentFor(std::chrono::milliseconds silence)
{
    return {"", "", silence};
}

AliveCondition withSilence()
{
    AliveCondition condition;
    condition.silence = 600s;
    return condition;
}

TEST(ExecSlaveHealthTest, AProgramWhoseChecksHoldIsAlive)
{
    EXPECT_EQ(findIllness(withSilence(), healthy), "");
    EXPECT_EQ(findIllness(withSilence(), silentFor(599999ms)), "");
}

TEST(ExecSlaveHealthTest, EachFailureIsAReason)
{
    EXPECT_EQ(findIllness({}, portFails), "cannot connect to 127.0.0.1:1: refused");
    EXPECT_EQ(findIllness({}, commandFails), "the command check ended with exit status 1");
    EXPECT_EQ(findIllness(withSilence(), silentFor(600s)), "no line of output for 600 s");
}

TEST(ExecSlaveHealthTest, SilenceWithoutALimitIsNoReason)
{
    EXPECT_EQ(findIllness({}, silentFor(1000000s)), "");
}

TEST(ExecSlaveHealthTest, EachChangeIsReportedOnce)
{
    HealthReport report;
    const auto condition = withSilence();
    EXPECT_EQ(report.update(condition, healthy), "");
    EXPECT_EQ(report.update(condition, portFails),
              "no heartbeats while the program is not alive: cannot connect to 127.0.0.1:1: "
              "refused");
    EXPECT_EQ(report.update(condition, portFails), "");
    EXPECT_EQ(report.update(condition, healthy), "the program is alive again, heartbeats go on");
    EXPECT_EQ(report.update(condition, healthy), "");
}

TEST(ExecSlaveHealthTest, AnotherReasonIsReportedToo)
{
    HealthReport report;
    const auto condition = withSilence();
    report.update(condition, portFails);
    EXPECT_EQ(report.update(condition, commandFails),
              "no heartbeats while the program is not alive: the command check ended with exit "
              "status 1");
    EXPECT_EQ(report.update(condition, silentFor(700s)),
              "no heartbeats while the program is not alive: no line of output for 600 s");
}

} // namespace
} // namespace quelta::execslave
