#include "exec_slave/SessionState.h"

#include <gtest/gtest.h>

#include "exec_slave/ExitStatus.h"

namespace quelta::execslave {
namespace {

using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

constexpr auto start = 100s;

/** A program that is ready once it prints a line, which has 10 s for it. */
class ExecSlaveSessionStateTest : public testing::Test
{
protected:
    ExecSlaveSessionStateTest()
    {
        configuration.ready.line = "^online";
        configuration.ready.timeout = 10s;
    }

    SessionOrders advance(std::chrono::milliseconds sinceStart)
    {
        seen.now = start + sinceStart;
        return state().advance(seen);
    }

    /** Made with the first use, so that a test can change the configuration before. */
    SessionState& state()
    {
        if (!made)
            made.emplace(configuration, start);

        return *made;
    }

    void becomeReady()
    {
        seen.readyConditionMet = true;
        EXPECT_TRUE(advance(1s).announce);
    }

    Configuration configuration;
    SessionObservation seen;
    std::optional<SessionState> made;
};

TEST_F(ExecSlaveSessionStateTest, NothingIsOrderedWhileTheProgramStarts)
{
    const auto orders = advance(4s);
    EXPECT_FALSE(orders.announce);
    EXPECT_TRUE(orders.alive);
    EXPECT_EQ(orders.step, StopStep::none);
    EXPECT_EQ(orders.messages, Strings{});
    EXPECT_EQ(orders.wait, 6s);
}

TEST_F(ExecSlaveSessionStateTest, AReadyProgramIsAnnouncedOnce)
{
    seen.readyConditionMet = true;
    const auto orders = advance(1s);
    EXPECT_TRUE(orders.announce);
    EXPECT_EQ(orders.messages, Strings{"the program is ready"});
    EXPECT_EQ(orders.wait, std::nullopt);

    const auto later = advance(2s);
    EXPECT_FALSE(later.announce);
    EXPECT_EQ(later.messages, Strings{});
}

TEST_F(ExecSlaveSessionStateTest, AProgramThatIsNotReadyInTimeIsKilled)
{
    const auto orders = advance(10s);
    EXPECT_EQ(orders.step, StopStep::kill);
    EXPECT_FALSE(orders.announce);
    EXPECT_EQ(orders.messages, Strings{"the program was not ready within 10 s: no line of its "
                                       "output matched '^online'"});

    const auto end = state().conclude(seen, 137, "signal 9 (Killed)");
    EXPECT_EQ(end.status, exitNotReady);
    EXPECT_EQ(end.messages, Strings{"the program has ended: signal 9 (Killed)"});
}

TEST_F(ExecSlaveSessionStateTest, AnErrorLineKillsTheProgramAtOnce)
{
    becomeReady();
    seen.errorPattern = "CUDA error";
    seen.errorLine = "CUDA error: out of memory";
    const auto orders = advance(2s);
    EXPECT_EQ(orders.step, StopStep::kill);
    EXPECT_EQ(orders.messages,
              Strings{"failed, since a line of output matches 'CUDA error': CUDA error: out of "
                      "memory"});
    EXPECT_EQ(advance(3s).step, StopStep::none);
    EXPECT_EQ(state().conclude(seen, 137, "signal 9 (Killed)").status, exitErrorLine);
}

TEST_F(ExecSlaveSessionStateTest, AnErrorAsTheLastLineFailsTheRunAsWell)
{
    becomeReady();
    seen.errorPattern = "CUDA error";
    seen.errorLine = "CUDA error: out of memory";
    const auto end = state().conclude(seen, 0, "exit status 0");
    EXPECT_EQ(end.status, exitErrorLine);
    EXPECT_EQ(end.messages,
              (Strings{"failed, since a line of output matches 'CUDA error': CUDA error: out of "
                       "memory",
                       "the program has ended: exit status 0"}));
}

TEST_F(ExecSlaveSessionStateTest, AProgramThatIsBeingStoppedMayReportErrors)
{
    becomeReady();
    seen.stop = StopReason::daemonAsked;
    EXPECT_EQ(advance(2s).step, StopStep::signal);
    seen.errorPattern = "CUDA error";
    EXPECT_EQ(advance(3s).step, StopStep::none);
    EXPECT_EQ(state().conclude(seen, 0, "exit status 0").status, 0);
}

TEST_F(ExecSlaveSessionStateTest, TheProgramsOwnEndPassesOnItsStatus)
{
    becomeReady();
    const auto end = state().conclude(seen, 7, "exit status 7");
    EXPECT_EQ(end.status, 7);
    EXPECT_EQ(end.messages, Strings{"the program has ended: exit status 7"});
}

TEST_F(ExecSlaveSessionStateTest, AStopGoesDownTheLadder)
{
    configuration.stop.command = {"tell"};
    configuration.stop.grace = 8s;
    becomeReady();
    seen.stop = StopReason::daemonAsked;
    const auto begin = advance(20s);
    EXPECT_EQ(begin.step, StopStep::runCommand);
    EXPECT_EQ(begin.messages, Strings{"stopping the program: the daemon has asked for it"});
    EXPECT_EQ(begin.wait, 4s);
    EXPECT_TRUE(begin.alive);

    EXPECT_EQ(advance(24s).step, StopStep::signal);
    const auto last = advance(28s);
    EXPECT_EQ(last.step, StopStep::kill);
    EXPECT_EQ(last.messages, Strings{"the program has not ended within 8 s, killing it"});
    EXPECT_EQ(advance(29s).step, StopStep::none);
    EXPECT_EQ(state().conclude(seen, 137, "signal 9 (Killed)").status, 137);
}

TEST_F(ExecSlaveSessionStateTest, AProgramThatIsStillStartingCanBeStopped)
{
    seen.stop = StopReason::signal;
    const auto orders = advance(2s);
    EXPECT_EQ(orders.step, StopStep::signal);
    EXPECT_EQ(orders.messages, Strings{"stopping the program: a signal has asked for it"});

    // It has the grace period, even if it would have had to be ready meanwhile.
    seen.readyConditionMet = true;
    const auto later = advance(10500ms);
    EXPECT_EQ(later.step, StopStep::none);
    EXPECT_FALSE(later.announce);
}

TEST_F(ExecSlaveSessionStateTest, TheLossOfTheDaemonStopsTheProgram)
{
    becomeReady();
    seen.stop = StopReason::daemonLost;
    EXPECT_EQ(advance(2s).messages,
              Strings{"stopping the program: the connection to the daemon is lost"});
}

TEST_F(ExecSlaveSessionStateTest, TheEndOfTheWindowsSessionShortensARunningStop)
{
    becomeReady();
    seen.stop = StopReason::daemonAsked;
    EXPECT_EQ(advance(2s).step, StopStep::signal);
    seen.stop = StopReason::systemEnds;
    const auto orders = advance(3s);
    EXPECT_EQ(orders.messages, Strings{});
    EXPECT_EQ(orders.wait, 2500ms);
    EXPECT_EQ(advance(5500ms).messages,
              Strings{"the program has not ended within 3.5 s, killing it"});
}

TEST_F(ExecSlaveSessionStateTest, HeartbeatsPauseWhileACheckFails)
{
    becomeReady();
    seen.tcpFailure = "cannot connect to 127.0.0.1:1: refused";
    const auto orders = advance(6s);
    EXPECT_FALSE(orders.alive);
    EXPECT_EQ(orders.messages, Strings{"no heartbeats while the program is not alive: cannot "
                                       "connect to 127.0.0.1:1: refused"});
    EXPECT_EQ(advance(7s).messages, Strings{});
    seen.tcpFailure.clear();
    const auto later = advance(8s);
    EXPECT_TRUE(later.alive);
    EXPECT_EQ(later.messages, Strings{"the program is alive again, heartbeats go on"});
}

TEST_F(ExecSlaveSessionStateTest, SilenceCountsFromReadinessOrTheLastLine)
{
    configuration.alive.silence = 5s;
    seen.lastLine = start;
    seen.readyConditionMet = true;
    EXPECT_TRUE(advance(4s).announce);
    EXPECT_EQ(advance(8s).wait, 1s);
    EXPECT_FALSE(advance(9s).alive);
    seen.lastLine = start + 10s;
    EXPECT_TRUE(advance(11s).alive);
    EXPECT_FALSE(advance(15s).alive);
}

TEST_F(ExecSlaveSessionStateTest, AFailedReadinessCheckIsNamedInTheEnd)
{
    configuration.ready = {};
    configuration.ready.tcp = "127.0.0.1:1";
    configuration.ready.timeout = 2s;
    seen.readyFailure = "cannot connect to 127.0.0.1:1: refused";
    EXPECT_EQ(advance(1s).messages, Strings{});
    EXPECT_EQ(advance(2s).messages, Strings{"the program was not ready within 2 s: cannot connect "
                                            "to 127.0.0.1:1: refused"});
}

} // namespace
} // namespace quelta::execslave
