#include "exec_slave/SessionInbox.h"

#include <gtest/gtest.h>

#include "support/FakeAwakeClock.h"

namespace quelta::execslave {
namespace {

using namespace std::chrono_literals;

TEST(ExecSlaveInboxTest, TheFirstReasonToStopCounts)
{
    SessionInbox inbox;
    EXPECT_FALSE(inbox.look().stop);
    EXPECT_FALSE(inbox.getStopToken().stop_requested());
    inbox.daemonAskedToStop();
    inbox.daemonLost();
    EXPECT_EQ(inbox.look().stop, StopReason::daemonAsked);
    EXPECT_TRUE(inbox.getStopToken().stop_requested());
}

TEST(ExecSlaveInboxTest, TheEndOfTheSystemsSessionReplacesAnotherReason)
{
    SessionInbox inbox;
    inbox.daemonAskedToStop();
    inbox.requestStop(StopReason::systemEnds);
    EXPECT_EQ(inbox.look().stop, StopReason::systemEnds);
}

TEST(ExecSlaveInboxTest, TheFirstErrorLineCounts)
{
    SessionInbox inbox;
    inbox.reportErrorLine("CUDA error 1", "CUDA");
    inbox.reportErrorLine("lost", "lost");
    EXPECT_EQ(inbox.look().errorLine, "CUDA error 1");
    EXPECT_EQ(inbox.look().errorPattern, "CUDA");
}

TEST(ExecSlaveInboxTest, ACheckThatHoldsClearsItsFailure)
{
    SessionInbox inbox;
    inbox.reportTcpCheck("refused");
    inbox.reportCommandCheck("failed");
    EXPECT_EQ(inbox.look().tcpFailure, "refused");
    inbox.reportTcpCheck("");
    EXPECT_EQ(inbox.look().tcpFailure, "");
    EXPECT_EQ(inbox.look().commandFailure, "failed");
}

TEST(ExecSlaveInboxTest, ALineThatWaitsForItsReaderIsNoSilence)
{
    test::FakeAwakeClock clock(1'000);
    SessionInbox inbox;
    inbox.beginLine();
    clock.advance(50'000);
    EXPECT_EQ(inbox.look().lastLine, 51'000ms);
    inbox.endLine();
    clock.advance(5'000);
    EXPECT_EQ(inbox.look().lastLine, 51'000ms);
    EXPECT_EQ(inbox.look().now, 56'000ms);
}

TEST(ExecSlaveInboxTest, AReportBeforeTheWaitEndsItAtOnce)
{
    SessionInbox inbox;
    inbox.reportReady();
    inbox.wait(1h);
    EXPECT_TRUE(inbox.look().readyConditionMet);
}

TEST(ExecSlaveInboxTest, TheEndOfTheOutputIsRemembered)
{
    SessionInbox inbox;
    EXPECT_FALSE(inbox.waitForEndOfOutput(0ms));
    inbox.reportEndOfOutput();
    inbox.wait(1h);
    EXPECT_TRUE(inbox.waitForEndOfOutput(0ms));
}

} // namespace
} // namespace quelta::execslave
