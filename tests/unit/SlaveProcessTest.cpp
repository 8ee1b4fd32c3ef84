#include "app/SlaveProcess.h"

#include <algorithm>

#include "platform/Paths.h"
#include "support/FakeAwakeClock.h"
#include "support/SlaveListener.h"
#include "support/StandinSlave.h"
#include "support/ThreadedTest.h"
#include "util/StopDeadline.h"

namespace quelta::test {
namespace {

/** Time limits that are never reached. A test that needs one to be reached makes it shorter. */
struct Patient
{
    uint32_t startup = 60'000;
    uint32_t afterInitialisation = 60'000;
    uint32_t heartBeat = 60'000;
    uint32_t gracefulStop = 60'000;

    constexpr operator SlaveTimeLimits() const
    {
        return {.startup = startup,
                .afterInitialisation = afterInitialisation,
                .heartBeat = heartBeat,
                .gracefulStop = gracefulStop};
    }
};

constexpr SlaveTimeLimits patient = Patient{};

// In tests that expect the running notice the slave stays silent for 400 ms after its information,
// so that a poll sees it initialised, even on a busy machine.

constexpr auto crashLine = "slave crashed or was stopped via CTRL-C";
constexpr auto killLine = "slave didn't stop gracefully, killing process by force";

class SlaveProcessTest : public ThreadedTest
{
protected:
    void start(const char* scenario, const SlaveTimeLimits& limits = patient,
               bool infoRequest = false)
    {
        flags::daemonDetail = 1;
        slave.play(scenario);
        settings.slaveExecutable = slave.getFile();
        settings.daemonPort = 5000;
        process.emplace(0x7F000001, 5130, settings, infoRequest, &owner, lastMonitorPort, limits);
    }

    void runToTheEnd(const char* scenario, const SlaveTimeLimits& limits = patient,
                     bool infoRequest = false)
    {
        start(scenario, limits, infoRequest);
        waitForEnd();
    }

    /** Runs the slave only for its version and number of GPUs. */
    void runInformationToTheEnd(const char* scenario, const SlaveTimeLimits& limits = patient)
    {
        runToTheEnd(scenario, limits, true);
    }

    void waitForEnd() { ASSERT_TRUE(process->waitForThreadToExit(static_cast<int>(hangLimitMs))); }

    /** The log lines about the slave's fate, without the lines of the monitor and its messages. */
    Lines getVerdicts() const
    {
        Lines verdicts;

        for (const auto& line : log.lines())
            if (line.starts_with("detected") || line == crashLine || line == killLine ||
                line.starts_with("failed"))
                verdicts.push_back(line);

        return verdicts;
    }

    struct Outcome
    {
        bool failed = false;
        int timesRunning = 0; ///< Notifications of the owner.
        int timesFailed = 0;
        Lines verdicts = {};
    };

    void expectOutcome(const Outcome& expected)
    {
        EXPECT_EQ(process->hasFailed(), expected.failed);
        EXPECT_EQ(owner.timesRunning, expected.timesRunning);
        EXPECT_EQ(owner.timesFailed, expected.timesFailed);
        EXPECT_EQ(getVerdicts(), expected.verdicts);
    }

    StandinSlave slave{""};
    DaemonSettings settings;
    SlaveListener owner;
    MonitorPort lastMonitorPort{0};
    std::optional<SlaveProcess> process;
};

TEST_F(SlaveProcessTest, AMissingExecutableIsAFailureWithoutANotification)
{
    flags::logPrefix = 1;
    settings.slaveExecutable = slave.getFile().getSiblingFile("missing");
    settings.daemonPort = 5000;
    process.emplace(0, 0, settings, false, &owner, lastMonitorPort, patient);
    waitForEnd();
    EXPECT_TRUE(wasLogged("ERROR     : failed to launch Quelta slave: 2"));
    expectOutcome({.failed = true});
}

TEST_F(SlaveProcessTest, AnEmptyLineIsLoggedBeforeEveryLaunch)
{
    runToTheEnd("[run]\nexit 0");
    EXPECT_EQ(log.lines().at(0), "\n");
}

TEST_F(SlaveProcessTest, ASlaveThatNeverConnectsHangsInStartup)
{
    runToTheEnd("[run]\nhang", Patient{.startup = 300, .gracefulStop = 200});
    expectOutcome({.failed = true,
                   .timesFailed = 1,
                   .verdicts = {"detected that slave is hanging during startup -> stopping slave",
                                killLine}});
}

TEST_F(SlaveProcessTest, AConnectionAloneEndsTheSilenceOnlyOnce)
{
    runToTheEnd("[run]\nconnect\nhang", Patient{.startup = 600});
    expectOutcome(
        {.failed = true,
         .timesFailed = 1,
         .verdicts = {"detected that slave is hanging during startup -> stopping slave"}});
}

TEST_F(SlaveProcessTest, AnAuthenticatingSlaveHasNoTimeLimit)
{
    start("[run]\nconnect\nauthenticating\nhang",
          Patient{.afterInitialisation = 100, .heartBeat = 100});
    ASSERT_TRUE(log.waitForLine("received heartbeat message 'AUTHENTICATING' from slave"));
    // Seven times any limit. A busy machine weakens the test but does not make it fail.
    EXPECT_FALSE(process->waitForThreadToExit(700));
    process->stopThread(-1);
    expectOutcome({});
}

TEST_F(SlaveProcessTest, AnInitialisedSlaveThatFallsSilentHangs)
{
    runToTheEnd("[run]\nconnect\ninfo\nhang", Patient{.afterInitialisation = 800});
    expectOutcome(
        {.failed = true,
         .timesRunning = 1,
         .timesFailed = 1,
         .verdicts = {"detected that slave is hanging after initialization -> stopping slave"}});
}

TEST_F(SlaveProcessTest, ASlaveWhoseHeartBeatStopsIsStopped)
{
    runToTheEnd("[run]\nconnect\ninfo\nwait 400\nbeat 50 for 200\nhang", Patient{.heartBeat = 800});
    expectOutcome({.failed = true,
                   .timesRunning = 1,
                   .timesFailed = 1,
                   .verdicts = {"detected that heart beat of slave stopped -> stopping slave"}});
}

TEST_F(SlaveProcessTest, AHangingSlaveThatIgnoresTheStopIsKilled)
{
    runToTheEnd("[run]\non-stop ignore\nconnect\nstatus\nhang",
                Patient{.heartBeat = 300, .gracefulStop = 300});
    expectOutcome(
        {.failed = true,
         .timesFailed = 1,
         .verdicts = {"detected that heart beat of slave stopped -> stopping slave", killLine}});
}

TEST_F(SlaveProcessTest, ARunningSlaveThatExitsHasCrashedEvenWithStatusZero)
{
    runToTheEnd("[run]\nconnect\ninfo\nwait 400\nbeat 50 for 150\nexit 0");
    expectOutcome({.failed = true, .timesRunning = 1, .timesFailed = 1, .verdicts = {crashLine}});
}

TEST_F(SlaveProcessTest, ASlaveThatExitsBeforeConnectingHasCrashed)
{
    runToTheEnd("[run]\nexit 3");
    expectOutcome({.failed = true, .timesFailed = 1, .verdicts = {crashLine}});
}

/** Message and end usually fall into the same poll. The end may be seen before the message has been
    read, so the test allows ten attempts. */
TEST_F(SlaveProcessTest, ThePollThatSeesTheEndReadsTheLastMessageToo)
{
    Lines crashes;

    while (owner.timesRunning == 0 && crashes.size() < 10)
    {
        runToTheEnd("[run]\nconnect\ninfo\nexit 0");
        crashes.push_back(crashLine);
    }

    expectOutcome({.failed = true,
                   .timesRunning = 1,
                   .timesFailed = static_cast<int>(crashes.size()),
                   .verdicts = crashes});
}

TEST_F(SlaveProcessTest, TheOwnerIsNotifiedOnceThatTheSlaveRuns)
{
    runToTheEnd("[run]\nconnect\ninfo\nwait 400\nbeat 50 for 200\ninfo 5 6\nwait 400\nexit 0");
    expectOutcome({.failed = true, .timesRunning = 1, .timesFailed = 1, .verdicts = {crashLine}});
    EXPECT_EQ(process->getSlaveVersion(), 5u);
    EXPECT_EQ(process->getNumProvidedGpus(), 6u);
}

TEST_F(SlaveProcessTest, AStopThatIsObeyedIsNotLogged)
{
    start("[run]\non-stop exit-after 200\nconnect\ninfo\nwait 100\nbeat 50");
    ASSERT_TRUE(log.waitForLine("received heartbeat message 'SLAVE_STATUS' from slave"));
    EXPECT_GE(timeOf([this] { process->stopThread(-1); }), 200u);
    EXPECT_FALSE(process->hasFailed());
    EXPECT_EQ(owner.timesFailed, 0);
    EXPECT_EQ(getVerdicts(), Lines{});
}

TEST_F(SlaveProcessTest, ASlaveThatIgnoresTheStopIsKilledAfterTheGracefulStop)
{
    start("[run]\non-stop ignore\nconnect\nstatus\nbeat 50", Patient{.gracefulStop = 400});
    ASSERT_TRUE(log.waitForLine("received heartbeat message 'SLAVE_STATUS' from slave"));
    const auto time = timeOf([this] { process->stopThread(-1); });
    EXPECT_GE(time, 400u);
    EXPECT_LT(time, 400u + 2'000u);
    expectOutcome({.verdicts = {killLine}});
}

TEST_F(SlaveProcessTest, AStopReachesASlaveThatConnectsLater)
{
    start("[run]\nwait 500\nconnect\nstatus\nbeat 50");
    process->stopThread(-1);
    expectOutcome({});
}

TEST_F(SlaveProcessTest, LaunchAndEndAreLoggedInDetail)
{
    runToTheEnd("[run]\nconnect\ninfo\nwait 200\nexit 3");
    const auto pid = waitForNumberIn("slave process # ended with exit status 3");
    ASSERT_TRUE(pid);
    const auto launched = "launched slave process " + std::to_string(*pid) +
                          ", path: " + slave.getFile().getFullPathName().toStdString() +
                          ", command line: \"" + slave.getFile().getFileName().toStdString() +
                          "\" --net-master-address 127.0.0.1 --net-master-port 5130 --daemon-port ";
    const auto lines = log.lines();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(),
                            [&launched](const auto& line) { return line.starts_with(launched); }));
}

TEST_F(SlaveProcessTest, KillingTheSlaveIsLoggedInDetail)
{
    runToTheEnd("[run]\non-stop ignore\nconnect\nstatus\nhang",
                Patient{.heartBeat = 300, .gracefulStop = 300});
    EXPECT_TRUE(waitForNumberIn(platform::absolutePathsHaveRoot()
                                    ? "slave process # ended with exit status 0"
                                    : "slave process # ended with signal 9 (Killed)"));
}

TEST_F(SlaveProcessTest, TheGracefulStopDoesNotIncludeTheMachinesSleep)
{
    FakeAwakeClock clock;
    start("[run]\non-stop ignore\nconnect\nstatus\nbeat 50", Patient{.gracefulStop = 300});
    ASSERT_TRUE(log.waitForLine("received heartbeat message 'SLAVE_STATUS' from slave"));
    process->signalThreadShouldExit();
    // Three times the limit. A busy machine weakens the test but does not make it fail.
    EXPECT_FALSE(process->waitForThreadToExit(900));
    EXPECT_EQ(getVerdicts(), Lines{});
    clock.advance(300);
    waitForEnd();
    expectOutcome({.verdicts = {killLine}});
}

TEST_F(SlaveProcessTest, AStopDeadlineShortensTheGracefulStop)
{
    start("[run]\non-stop ignore\nconnect\nstatus\nbeat 50");
    ASSERT_TRUE(log.waitForLine("received heartbeat message 'SLAVE_STATUS' from slave"));
    setStopDeadline(platform::getAwakeMilliseconds() + 300);
    const auto time = timeOf([this] { process->stopThread(-1); });
    setStopDeadline({});
    EXPECT_GE(time, 290u); // the clocks have different resolutions
    EXPECT_LT(time, 300u + 2'000u);
    expectOutcome({.verdicts = {killLine}});
}

TEST_F(SlaveProcessTest, ARelaunchedSlaveReportsToTheSamePort)
{
    runToTheEnd("[info]\nconnect\ninfo\nexit 0", patient, true);
    const uint16_t first = lastMonitorPort;
    ASSERT_NE(first, 0);
    log.clear();
    runToTheEnd("[run]\nexit 0");
    EXPECT_TRUE(
        wasLogged("using free port " + std::to_string(first) + " to communicate with slave"));
    EXPECT_EQ(lastMonitorPort, first);
}

TEST_F(SlaveProcessTest, AnInformationRunSucceedsOnceTheSlaveHasReported)
{
    runToTheEnd("[info]\nversion 513\ngpus 7\nconnect\nauthenticating\ninfo\nwait 150\nexit 9",
                patient, true);
    expectOutcome({});
    EXPECT_EQ(process->getSlaveVersion(), 513u);
    EXPECT_EQ(process->getNumProvidedGpus(), 7u);
}

TEST_F(SlaveProcessTest, AnInformationRunThatEndsBeforeTheReportFailsWithoutANotification)
{
    runInformationToTheEnd("[info]\nconnect\nauthenticating\nwait 150\nexit 0");
    expectOutcome({.failed = true, .verdicts = {crashLine}});
}

TEST_F(SlaveProcessTest, AnInformationRunThatHangsFailsWithoutANotification)
{
    runInformationToTheEnd("[info]\nconnect\ninfo\nhang", Patient{.afterInitialisation = 800});
    expectOutcome(
        {.failed = true,
         .verdicts = {"detected that slave is hanging after initialization -> stopping slave"}});
}

TEST_F(SlaveProcessTest, WithoutAnOwnerThereIsNoNotification)
{
    slave.play("[run]\nconnect\ninfo\nwait 150\nexit 0");
    settings.slaveExecutable = slave.getFile();
    settings.daemonPort = 5000;
    process.emplace(0, 0, settings, false, nullptr, lastMonitorPort, patient);
    waitForEnd();
    expectOutcome({.failed = true, .verdicts = {crashLine}});
}

} // namespace
} // namespace quelta::test
