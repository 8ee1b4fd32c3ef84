#include "app/SlaveJudgement.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace quelta::test {
namespace {

constexpr bool runs = true;
constexpr bool gone = false;
constexpr bool asked = true;
constexpr bool unasked = false;
constexpr bool info = true;
constexpr bool serving = false;

constexpr auto none = SlaveHang::none;
constexpr auto startup = SlaveHang::duringStartup;
constexpr auto afterInit = SlaveHang::afterInitialisation;
constexpr auto heartBeat = SlaveHang::heartBeatStopped;

constexpr auto watch = SlaveNextStep::keepWatching;
constexpr auto stop = SlaveNextStep::stop;
constexpr auto ended = SlaveNextStep::ended;
constexpr auto crashed = SlaveNextStep::crashed;

struct JudgementRow
{
    SlaveStatus status;
    uint32_t silence;
    bool running;
    bool askedToStop;
    bool infoRequest;
    SlaveHang hang;
    SlaveNextStep nextStep;
};

constexpr uint32_t ages = std::numeric_limits<uint32_t>::max();

constexpr JudgementRow judgementTable[] = {
    {STATUS_STARTING, 10'000, runs, unasked, serving, none, watch},
    {STATUS_STARTING, 10'000, runs, unasked, info, none, watch},
    {STATUS_STARTING, 10'000, runs, asked, serving, none, stop},
    {STATUS_STARTING, 10'000, runs, asked, info, none, stop},
    {STATUS_STARTING, 10'000, gone, unasked, serving, none, crashed},
    {STATUS_STARTING, 10'000, gone, unasked, info, none, crashed},
    {STATUS_STARTING, 10'000, gone, asked, serving, none, crashed},
    {STATUS_STARTING, 10'000, gone, asked, info, none, crashed},
    {STATUS_STARTING, 10'001, runs, unasked, serving, startup, stop},
    {STATUS_STARTING, 10'001, runs, unasked, info, startup, stop},
    {STATUS_STARTING, 10'001, runs, asked, serving, startup, stop},
    {STATUS_STARTING, 10'001, runs, asked, info, startup, stop},
    {STATUS_STARTING, 10'001, gone, unasked, serving, startup, crashed},
    {STATUS_STARTING, 10'001, gone, unasked, info, startup, crashed},
    {STATUS_STARTING, 10'001, gone, asked, serving, startup, crashed},
    {STATUS_STARTING, 10'001, gone, asked, info, startup, crashed},

    {STATUS_AUTHENTICATING, 0, runs, unasked, serving, none, watch},
    {STATUS_AUTHENTICATING, 0, runs, unasked, info, none, watch},
    {STATUS_AUTHENTICATING, 0, runs, asked, serving, none, stop},
    {STATUS_AUTHENTICATING, 0, runs, asked, info, none, stop},
    {STATUS_AUTHENTICATING, 0, gone, unasked, serving, none, crashed},
    {STATUS_AUTHENTICATING, 0, gone, unasked, info, none, crashed},
    {STATUS_AUTHENTICATING, 0, gone, asked, serving, none, crashed},
    {STATUS_AUTHENTICATING, 0, gone, asked, info, none, crashed},
    {STATUS_AUTHENTICATING, ages, runs, unasked, serving, none, watch},
    {STATUS_AUTHENTICATING, ages, runs, unasked, info, none, watch},
    {STATUS_AUTHENTICATING, ages, runs, asked, serving, none, stop},
    {STATUS_AUTHENTICATING, ages, runs, asked, info, none, stop},
    {STATUS_AUTHENTICATING, ages, gone, unasked, serving, none, crashed},
    {STATUS_AUTHENTICATING, ages, gone, unasked, info, none, crashed},
    {STATUS_AUTHENTICATING, ages, gone, asked, serving, none, crashed},
    {STATUS_AUTHENTICATING, ages, gone, asked, info, none, crashed},

    {STATUS_INITIALIZED, 4'000, runs, unasked, serving, none, watch},
    {STATUS_INITIALIZED, 4'000, runs, unasked, info, none, watch},
    {STATUS_INITIALIZED, 4'000, runs, asked, serving, none, stop},
    {STATUS_INITIALIZED, 4'000, runs, asked, info, none, stop},
    {STATUS_INITIALIZED, 4'000, gone, unasked, serving, none, crashed},
    {STATUS_INITIALIZED, 4'000, gone, unasked, info, none, ended},
    {STATUS_INITIALIZED, 4'000, gone, asked, serving, none, crashed},
    {STATUS_INITIALIZED, 4'000, gone, asked, info, none, ended},
    {STATUS_INITIALIZED, 4'001, runs, unasked, serving, afterInit, stop},
    {STATUS_INITIALIZED, 4'001, runs, unasked, info, afterInit, stop},
    {STATUS_INITIALIZED, 4'001, runs, asked, serving, afterInit, stop},
    {STATUS_INITIALIZED, 4'001, runs, asked, info, afterInit, stop},
    {STATUS_INITIALIZED, 4'001, gone, unasked, serving, afterInit, crashed},
    {STATUS_INITIALIZED, 4'001, gone, unasked, info, afterInit, ended},
    {STATUS_INITIALIZED, 4'001, gone, asked, serving, afterInit, crashed},
    {STATUS_INITIALIZED, 4'001, gone, asked, info, afterInit, ended},

    {STATUS_RUNNING, 10'000, runs, unasked, serving, none, watch},
    {STATUS_RUNNING, 10'000, runs, unasked, info, none, watch},
    {STATUS_RUNNING, 10'000, runs, asked, serving, none, stop},
    {STATUS_RUNNING, 10'000, runs, asked, info, none, stop},
    {STATUS_RUNNING, 10'000, gone, unasked, serving, none, crashed},
    {STATUS_RUNNING, 10'000, gone, unasked, info, none, ended},
    {STATUS_RUNNING, 10'000, gone, asked, serving, none, crashed},
    {STATUS_RUNNING, 10'000, gone, asked, info, none, ended},
    {STATUS_RUNNING, 10'001, runs, unasked, serving, heartBeat, stop},
    {STATUS_RUNNING, 10'001, runs, unasked, info, heartBeat, stop},
    {STATUS_RUNNING, 10'001, runs, asked, serving, heartBeat, stop},
    {STATUS_RUNNING, 10'001, runs, asked, info, heartBeat, stop},
    {STATUS_RUNNING, 10'001, gone, unasked, serving, heartBeat, crashed},
    {STATUS_RUNNING, 10'001, gone, unasked, info, heartBeat, ended},
    {STATUS_RUNNING, 10'001, gone, asked, serving, heartBeat, crashed},
    {STATUS_RUNNING, 10'001, gone, asked, info, heartBeat, ended},
};

std::string describe(const JudgementRow& row)
{
    return "status " + std::to_string(row.status) + ", silent for " + std::to_string(row.silence) +
           (row.running ? ", runs" : ", gone") + (row.askedToStop ? ", asked" : ", unasked") +
           (row.infoRequest ? ", info" : ", serving");
}

SlaveVerdict judge(const JudgementRow& row)
{
    return judgeSlave({.status = row.status,
                       .millisecondsSinceLastMessage = row.silence,
                       .running = row.running,
                       .askedToStop = row.askedToStop,
                       .infoRequest = row.infoRequest},
                      {});
}

TEST(SlaveJudgementTest, EveryObservationHasItsVerdict)
{
    for (const auto& row : judgementTable)
    {
        EXPECT_EQ(judge(row).hang, row.hang) << describe(row);
        EXPECT_EQ(judge(row).nextStep, row.nextStep) << describe(row);
    }
}

TEST(SlaveJudgementTest, ASlaveIsInitialisedUntilItFallsSilent)
{
    for (const auto& row : judgementTable)
        EXPECT_EQ(judge(row).initialised, row.status == STATUS_INITIALIZED && row.silence == 4'000)
            << describe(row);
}

TEST(SlaveJudgementTest, AFreshMessageIsNeverAHang)
{
    for (const auto status :
         {STATUS_STARTING, STATUS_AUTHENTICATING, STATUS_INITIALIZED, STATUS_RUNNING})
        EXPECT_EQ(judgeSlave({.status = status, .millisecondsSinceLastMessage = 0}, {}).hang, none);
}

TEST(SlaveJudgementTest, OtherLimitsCanBeGiven)
{
    const SlaveTimeLimits limits{
        .startup = 1, .afterInitialisation = 2, .heartBeat = 3, .gracefulStop = 4};
    const auto hangOf = [&limits](SlaveStatus status, uint32_t silence) {
        return judgeSlave({.status = status, .millisecondsSinceLastMessage = silence}, limits).hang;
    };

    EXPECT_EQ(hangOf(STATUS_STARTING, 1), none);
    EXPECT_EQ(hangOf(STATUS_STARTING, 2), startup);
    EXPECT_EQ(hangOf(STATUS_INITIALIZED, 2), none);
    EXPECT_EQ(hangOf(STATUS_INITIALIZED, 3), afterInit);
    EXPECT_EQ(hangOf(STATUS_RUNNING, 3), none);
    EXPECT_EQ(hangOf(STATUS_RUNNING, 4), heartBeat);
}

TEST(SlaveJudgementTest, TheDefaultLimitsAreThese)
{
    const SlaveTimeLimits limits;
    EXPECT_EQ(limits.startup, 10'000u);
    EXPECT_EQ(limits.afterInitialisation, 4'000u);
    EXPECT_EQ(limits.heartBeat, 10'000u);
    EXPECT_EQ(limits.gracefulStop, 12'000u);
}

} // namespace
} // namespace quelta::test
