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

/** None of these is ever reached; a test that wants one reached makes it shorter. */
constexpr SlaveTimeLimits patient{60'000, 60'000, 60'000, 60'000};

// Where the running notice is expected, the slave says nothing for 400 ms after its information, so
// that even on a busy machine one of the polls sees it initialised.

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

    void waitForEnd() { ASSERT_TRUE(process->waitForThreadToExit(static_cast<int>(hangLimitMs))); }

    /** What is said of the slave, without the monitor's and the messages' lines. */
    Lines getVerdicts() const
    {
        Lines verdicts;

        for (const auto& line : log.lines())
            if (line.starts_with("detected") || line == crashLine || line == killLine ||
                line.starts_with("failed"))
                verdicts.push_back(line);

        return verdicts;
    }

    void expectOutcome(bool failed, int timesRunning, int timesFailed, const Lines& verdicts)
    {
        EXPECT_EQ(process->hasFailed(), failed);
        EXPECT_EQ(owner.timesRunning, timesRunning);
        EXPECT_EQ(owner.timesFailed, timesFailed);
        EXPECT_EQ(getVerdicts(), verdicts);
    }

    StandinSlave slave{""};
    DaemonSettings settings;
    SlaveListener owner;
    MonitorPort lastMonitorPort{0};
    std::optional<SlaveProcess> process;
};

TEST_F(SlaveProcessTest, AMissingExecutableIsAFailureThatTheOwnerIsNotToldOf)
{
    flags::logPrefix = 1;
    settings.slaveExecutable = slave.getFile().getSiblingFile("missing");
    settings.daemonPort = 5000;
    process.emplace(0, 0, settings, false, &owner, lastMonitorPort, patient);
    waitForEnd();
    EXPECT_TRUE(wasLogged("ERROR     : failed to launch Quelta slave: 2"));
    expectOutcome(true, 0, 0, {});
}

TEST_F(SlaveProcessTest, AnEmptyLineIsPrintedBeforeEveryLaunch)
{
    runToTheEnd("[run]\nexit 0");
    EXPECT_EQ(log.lines().at(0), "\n");
}

TEST_F(SlaveProcessTest, ASlaveThatNeverConnectsHangsInStartup)
{
    runToTheEnd("[run]\nhang", {300, 60'000, 60'000, 200});
    expectOutcome(true, 0, 1,
                  {"detected that slave is hanging during startup -> stopping slave", killLine});
}

TEST_F(SlaveProcessTest, AConnectionIsASignOfLifeOnlyOnce)
{
    runToTheEnd("[run]\nconnect\nhang", {600, 60'000, 60'000, 60'000});
    expectOutcome(true, 0, 1, {"detected that slave is hanging during startup -> stopping slave"});
}

TEST_F(SlaveProcessTest, AnAuthenticatingSlaveHasAllTheTimeItWants)
{
    start("[run]\nconnect\nauthenticating\nhang", {60'000, 100, 100, 60'000});
    ASSERT_TRUE(log.waitForLine("received heartbeat message 'AUTHENTICATING' from slave"));
    EXPECT_FALSE(process->waitForThreadToExit(700)); // seven times any limit
    process->stopThread(-1);
    expectOutcome(false, 0, 0, {});
}

TEST_F(SlaveProcessTest, AnInitialisedSlaveThatFallsSilentHangs)
{
    runToTheEnd("[run]\nconnect\ninfo\nhang", {60'000, 800, 60'000, 60'000});
    expectOutcome(true, 1, 1,
                  {"detected that slave is hanging after initialization -> stopping slave"});
}

TEST_F(SlaveProcessTest, ASlaveWhoseHeartBeatStopsIsStopped)
{
    runToTheEnd("[run]\nconnect\ninfo\nwait 400\nbeat 50 for 200\nhang",
                {60'000, 60'000, 800, 60'000});
    expectOutcome(true, 1, 1, {"detected that heart beat of slave stopped -> stopping slave"});
}

TEST_F(SlaveProcessTest, AHangingSlaveThatIgnoresTheStopIsKilled)
{
    runToTheEnd("[run]\non-stop ignore\nconnect\nstatus\nhang", {60'000, 60'000, 300, 300});
    expectOutcome(true, 0, 1,
                  {"detected that heart beat of slave stopped -> stopping slave", killLine});
}

TEST_F(SlaveProcessTest, ARunningSlaveThatEndsByItselfHasCrashedWhateverItsStatus)
{
    runToTheEnd("[run]\nconnect\ninfo\nwait 400\nbeat 50 for 150\nexit 0");
    expectOutcome(true, 1, 1, {crashLine});
}

TEST_F(SlaveProcessTest, ASlaveThatDiesWithoutAWordHasCrashed)
{
    runToTheEnd("[run]\nexit 3");
    expectOutcome(true, 0, 1, {crashLine});
}

/** Its message and its end fall into the same poll. The end may be seen before the message has been
    read, which nobody promises otherwise, but not ever and ever again. */
TEST_F(SlaveProcessTest, ThePollThatSeesTheEndLooksAtTheLastMessageToo)
{
    Lines crashes;

    while (owner.timesRunning == 0 && crashes.size() < 10)
    {
        runToTheEnd("[run]\nconnect\ninfo\nexit 0");
        crashes.push_back(crashLine);
    }

    expectOutcome(true, 1, static_cast<int>(crashes.size()), crashes);
}

TEST_F(SlaveProcessTest, TheOwnerIsToldOnceThatTheSlaveRuns)
{
    runToTheEnd("[run]\nconnect\ninfo\nwait 400\nbeat 50 for 200\ninfo 5 6\nwait 400\nexit 0");
    expectOutcome(true, 1, 1, {crashLine});
    EXPECT_EQ(process->getSlaveVersion(), 5u);
    EXPECT_EQ(process->getNumProvidedGpus(), 6u);
}

TEST_F(SlaveProcessTest, AStopThatIsObeyedIsNotWorthALine)
{
    start("[run]\non-stop exit-after 200\nconnect\ninfo\nwait 100\nbeat 50");
    ASSERT_TRUE(log.waitForLine("received heartbeat message 'SLAVE_STATUS' from slave"));
    EXPECT_GE(timeOf([this] { process->stopThread(-1); }), 200u);
    EXPECT_FALSE(process->hasFailed());
    EXPECT_EQ(owner.timesFailed, 0);
    EXPECT_EQ(getVerdicts(), Lines{});
}

TEST_F(SlaveProcessTest, AStopThatIsIgnoredEndsWithForceWhenItsTimeIsUp)
{
    start("[run]\non-stop ignore\nconnect\nstatus\nbeat 50", {60'000, 60'000, 60'000, 400});
    ASSERT_TRUE(log.waitForLine("received heartbeat message 'SLAVE_STATUS' from slave"));
    const auto time = timeOf([this] { process->stopThread(-1); });
    EXPECT_GE(time, 400u);
    EXPECT_LT(time, 400u + 2'000u);
    expectOutcome(false, 0, 0, {killLine});
}

TEST_F(SlaveProcessTest, AStopBeforeTheSlaveHasConnectedReachesItLater)
{
    start("[run]\nwait 500\nconnect\nstatus\nbeat 50");
    process->stopThread(-1);
    expectOutcome(false, 0, 0, {});
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

TEST_F(SlaveProcessTest, AnEndByForceIsLoggedInDetail)
{
    runToTheEnd("[run]\non-stop ignore\nconnect\nstatus\nhang", {60'000, 60'000, 300, 300});
    EXPECT_TRUE(waitForNumberIn(platform::absolutePathsHaveRoot()
                                    ? "slave process # ended with exit status 0"
                                    : "slave process # ended with signal 9 (Killed)"));
}

TEST_F(SlaveProcessTest, TheGraceOfAStopIsCountedByTheClockThatStandsStillDuringSleep)
{
    FakeAwakeClock clock;
    start("[run]\non-stop ignore\nconnect\nstatus\nbeat 50", {60'000, 60'000, 60'000, 300});
    ASSERT_TRUE(log.waitForLine("received heartbeat message 'SLAVE_STATUS' from slave"));
    process->signalThreadShouldExit();
    EXPECT_FALSE(process->waitForThreadToExit(900)); // three times the limit
    EXPECT_EQ(getVerdicts(), Lines{});
    clock.advance(300);
    waitForEnd();
    expectOutcome(false, 0, 0, {killLine});
}

TEST_F(SlaveProcessTest, AStopDeadlineThatHasPassedCutsTheGraceShort)
{
    start("[run]\non-stop ignore\nconnect\nstatus\nbeat 50");
    ASSERT_TRUE(log.waitForLine("received heartbeat message 'SLAVE_STATUS' from slave"));
    setStopDeadline(platform::getAwakeMilliseconds() + 300);
    const auto time = timeOf([this] { process->stopThread(-1); });
    setStopDeadline({});
    EXPECT_GE(time, 290u); // the clocks differ in how often they advance
    EXPECT_LT(time, 300u + 2'000u);
    expectOutcome(false, 0, 0, {killLine});
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

TEST_F(SlaveProcessTest, AnInformationRunEndsWellOnceTheSlaveHasReported)
{
    runToTheEnd("[info]\nversion 513\ngpus 7\nconnect\nauthenticating\ninfo\nwait 150\nexit 9",
                patient, true);
    expectOutcome(false, 0, 0, {});
    EXPECT_EQ(process->getSlaveVersion(), 513u);
    EXPECT_EQ(process->getNumProvidedGpus(), 7u);
}

TEST_F(SlaveProcessTest, AnInformationRunThatEndsBeforeTheReportFailsAndNobodyElseIsTold)
{
    runToTheEnd("[info]\nconnect\nauthenticating\nwait 150\nexit 0", patient, true);
    expectOutcome(true, 0, 0, {crashLine});
}

TEST_F(SlaveProcessTest, AnInformationRunThatHangsFailsAndNobodyElseIsTold)
{
    runToTheEnd("[info]\nconnect\ninfo\nhang", {60'000, 800, 60'000, 60'000}, true);
    expectOutcome(true, 0, 0,
                  {"detected that slave is hanging after initialization -> stopping slave"});
}

TEST_F(SlaveProcessTest, WithoutAnOwnerNobodyIsTold)
{
    slave.play("[run]\nconnect\ninfo\nwait 150\nexit 0");
    settings.slaveExecutable = slave.getFile();
    settings.daemonPort = 5000;
    process.emplace(0, 0, settings, false, nullptr, lastMonitorPort, patient);
    waitForEnd();
    expectOutcome(true, 0, 0, {crashLine});
}

} // namespace
} // namespace quelta::test
