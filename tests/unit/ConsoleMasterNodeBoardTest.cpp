#include "console_master/NodeBoard.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "console_master/Report.h"
#include "support/OneNode.h"

namespace quelta::test {
namespace {

TEST(ConsoleMasterNodeBoard, ScanAsksOnceAndIsDoneWhenTheNodeAnswers)
{
    OneNode scan(Command::scan);
    scan.connect();
    EXPECT_EQ(scan.sent(), std::vector{MasterMessageType::SCAN_REQUEST});
    EXPECT_FALSE(scan.board.isDone());

    scan.receive(MasterMessageType::DAEMON_STATUS, OneNode::other);
    EXPECT_TRUE(scan.board.isDone());
    EXPECT_TRUE(scan.board.isAsAsked());
    EXPECT_STREQ(stateName(scan.node()), "owned");
}

TEST(ConsoleMasterNodeBoard, ANodeThatDoesNotAnswerInTimeHasNotDoneAsAsked)
{
    OneNode scan(Command::scan);
    scan.board.tick(OneNode::timeoutMs - 1);
    EXPECT_FALSE(scan.board.isDone());

    scan.board.tick(OneNode::timeoutMs);
    EXPECT_TRUE(scan.board.isDone());
    EXPECT_FALSE(scan.board.isAsAsked());
    EXPECT_EQ(scan.told(), std::vector{NodeEvent::noAnswer});
    EXPECT_STREQ(stateName(scan.node()), "no answer");
}

TEST(ConsoleMasterNodeBoard, HoldStartsTheSlaveAndGivesItBackOnRelease)
{
    OneNode hold(Command::hold);
    hold.connect();
    hold.receive(MasterMessageType::DAEMON_STATUS, OneNode::nobody);
    EXPECT_EQ(hold.sent(),
              (std::vector{MasterMessageType::SCAN_REQUEST, MasterMessageType::START_REQUEST}));

    hold.receive(MasterMessageType::DAEMON_STATUS, OneNode::self);
    hold.receive(MasterMessageType::START_REPLY, OneNode::self);
    EXPECT_STREQ(stateName(hold.node()), "starting");
    hold.receive(MasterMessageType::SLAVE_RUNNING, OneNode::self);
    EXPECT_STREQ(stateName(hold.node()), "running");
    EXPECT_EQ(hold.told(),
              (std::vector{NodeEvent::found, NodeEvent::starting, NodeEvent::running}));

    hold.board.release(0);
    EXPECT_EQ(hold.sent(), std::vector{MasterMessageType::STOP_REQUEST});
    EXPECT_STREQ(stateName(hold.node()), "stopping");
    hold.receive(MasterMessageType::DAEMON_STATUS, OneNode::nobody);
    EXPECT_FALSE(hold.board.isDone());
    hold.receive(MasterMessageType::STOP_REPLY, OneNode::nobody);
    EXPECT_EQ(hold.told(), std::vector{NodeEvent::stopped});
    EXPECT_TRUE(hold.board.isDone());
    EXPECT_TRUE(hold.board.isAsAsked());
}

TEST(ConsoleMasterNodeBoard, HoldOfAnOwnedNodeIsRefused)
{
    OneNode hold(Command::hold);
    hold.connect();
    hold.receive(MasterMessageType::DAEMON_STATUS, OneNode::other);
    hold.receive(MasterMessageType::START_REPLY, OneNode::other);
    EXPECT_EQ(hold.told(), (std::vector{NodeEvent::found, NodeEvent::refused}));
    EXPECT_TRUE(hold.board.isDone());
    EXPECT_FALSE(hold.board.isAsAsked());
}

TEST(ConsoleMasterNodeBoard, AFailedSlaveIsGivenBackAtOnce)
{
    auto held = OneNode::held();
    held.receive(MasterMessageType::SLAVE_FAILED, OneNode::self);
    EXPECT_EQ(held.sent(), std::vector{MasterMessageType::STOP_REQUEST});

    held.receive(MasterMessageType::STOP_REPLY, OneNode::nobody);
    EXPECT_EQ(held.told(), (std::vector{NodeEvent::failed, NodeEvent::stopped}));
    EXPECT_TRUE(held.board.isDone());
    EXPECT_FALSE(held.board.isAsAsked());
}

TEST(ConsoleMasterNodeBoard, AHeldNodeIsScannedEverySecondWithOneScanInFlight)
{
    auto held = OneNode::held();
    held.board.tick(999);
    EXPECT_EQ(held.sent(), std::vector<MasterMessageType>{});
    held.board.tick(1000);
    EXPECT_EQ(held.sent(), std::vector{MasterMessageType::SCAN_REQUEST});
    held.board.tick(2000);
    EXPECT_EQ(held.sent(), std::vector<MasterMessageType>{});

    held.board.tick(1000 + OneNode::timeoutMs);
    held.board.tick(1001 + OneNode::timeoutMs);
    EXPECT_EQ(held.told(), std::vector{NodeEvent::silent});
    EXPECT_STREQ(stateName(held.node()), "silent");

    held.receive(MasterMessageType::DAEMON_STATUS, OneNode::self, 7000);
    held.board.tick(7000);
    EXPECT_EQ(held.sent(), std::vector{MasterMessageType::SCAN_REQUEST});
    EXPECT_STREQ(stateName(held.node()), "running");
}

TEST(ConsoleMasterNodeBoard, AHeldNodeIsStolenIfItHasAnotherOwnerAndLostIfItHasNone)
{
    auto stolen = OneNode::held();
    stolen.receive(MasterMessageType::DAEMON_STATUS, OneNode::other);
    EXPECT_EQ(stolen.told(), std::vector{NodeEvent::stolen});
    EXPECT_TRUE(stolen.board.isDone());
    EXPECT_FALSE(stolen.board.isAsAsked());
    EXPECT_EQ(stolen.sent(), std::vector<MasterMessageType>{});

    auto lost = OneNode::held();
    lost.receive(MasterMessageType::DAEMON_STATUS, OneNode::nobody);
    EXPECT_EQ(lost.told(), std::vector{NodeEvent::lost});
    EXPECT_FALSE(lost.board.isAsAsked());
}

TEST(ConsoleMasterNodeBoard, AHeldNodeIsLostOnlyIfItDoesNotReconnectInTime)
{
    auto back = OneNode::held();
    back.board.disconnected(0, 1000);
    back.board.tick(999 + OneNode::timeoutMs);
    back.connect(999 + OneNode::timeoutMs);
    EXPECT_EQ(back.sent(), std::vector{MasterMessageType::SCAN_REQUEST});
    back.receive(MasterMessageType::DAEMON_STATUS, OneNode::self, 6000);
    EXPECT_EQ(back.told(), (std::vector{NodeEvent::disconnected, NodeEvent::found}));
    back.board.tick(6500);
    EXPECT_FALSE(back.board.isDone());
    EXPECT_TRUE(back.board.isAsAsked());

    auto gone = OneNode::held();
    gone.board.disconnected(0, 1000);
    gone.board.tick(1000 + OneNode::timeoutMs);
    EXPECT_EQ(gone.told(), (std::vector{NodeEvent::disconnected, NodeEvent::lost}));
    EXPECT_STREQ(stateName(gone.node()), "gone");
    EXPECT_FALSE(gone.board.isAsAsked());
}

TEST(ConsoleMasterNodeBoard, AStopRequestIsRepeatedAfterAReconnection)
{
    auto held = OneNode::held();
    held.board.release(0);
    held.board.disconnected(0, 0);
    held.sent();
    held.connect(500);
    EXPECT_EQ(held.sent(), std::vector{MasterMessageType::STOP_REQUEST});
}

TEST(ConsoleMasterNodeBoard, GivingBackTimesOutEvenIfTheNodeKeepsReconnecting)
{
    auto held = OneNode::held();
    EXPECT_EQ(held.board.countReleasing(), 0u);
    held.board.release(0);
    EXPECT_EQ(held.board.countReleasing(), 1u);
    EXPECT_EQ(held.board.releaseTimeoutMs(), OneNode::timeoutMs + NodeBoard::stopAllowanceMs);

    for (uint32_t now = 0; now < held.board.releaseTimeoutMs(); now += 1000)
    {
        held.board.disconnected(0, now);
        held.connect(now);
        held.board.tick(now);
        EXPECT_FALSE(held.board.isDone()) << now;
    }

    held.board.tick(held.board.releaseTimeoutMs());
    EXPECT_TRUE(held.board.isDone());
    EXPECT_EQ(held.board.countReleasing(), 0u);
    EXPECT_FALSE(held.board.isAsAsked());
}

TEST(ConsoleMasterNodeBoard, StealWaitsForTheOldSlaveToStop)
{
    OneNode steal(Command::steal);
    steal.connect();
    steal.receive(MasterMessageType::DAEMON_STATUS, OneNode::other);
    EXPECT_EQ(steal.sent(),
              (std::vector{MasterMessageType::SCAN_REQUEST, MasterMessageType::STEAL_REQUEST}));

    steal.board.tick(OneNode::timeoutMs + NodeBoard::stopAllowanceMs - 1);
    EXPECT_FALSE(steal.board.isDone());
    steal.receive(MasterMessageType::DAEMON_STATUS, OneNode::self);
    steal.receive(MasterMessageType::STEAL_REPLY, OneNode::self);
    EXPECT_EQ(steal.told(), (std::vector{NodeEvent::found, NodeEvent::starting}));
}

TEST(ConsoleMasterNodeBoard, StopSucceedsOnlyIfTheNodeIsFreeAfterwards)
{
    OneNode freed(Command::stop);
    freed.connect();
    freed.receive(MasterMessageType::DAEMON_STATUS, OneNode::self);
    EXPECT_EQ(freed.sent(),
              (std::vector{MasterMessageType::SCAN_REQUEST, MasterMessageType::STOP_REQUEST}));
    freed.receive(MasterMessageType::STOP_REPLY, OneNode::nobody);
    EXPECT_TRUE(freed.board.isDone());
    EXPECT_TRUE(freed.board.isAsAsked());

    OneNode refused(Command::stop);
    refused.connect();
    refused.receive(MasterMessageType::DAEMON_STATUS, OneNode::other);
    refused.receive(MasterMessageType::STOP_REPLY, OneNode::other);
    EXPECT_TRUE(refused.board.isDone());
    EXPECT_FALSE(refused.board.isAsAsked());
}

TEST(ConsoleMasterNodeBoard, WatchReportsChangesOnlyAndEndsOnRelease)
{
    OneNode watch(Command::watch);
    watch.board.tick(OneNode::timeoutMs);
    watch.board.tick(2 * OneNode::timeoutMs);
    watch.connect(20000);
    watch.receive(MasterMessageType::DAEMON_STATUS, OneNode::nobody, 20000);
    watch.receive(MasterMessageType::DAEMON_STATUS, OneNode::nobody, 21000);
    watch.receive(MasterMessageType::DAEMON_STATUS, OneNode::other, 22000);
    EXPECT_EQ(watch.told(),
              (std::vector{NodeEvent::noAnswer, NodeEvent::found, NodeEvent::changed}));

    EXPECT_FALSE(watch.board.isDone());
    watch.board.release(23000);
    EXPECT_TRUE(watch.board.isDone());
    EXPECT_TRUE(watch.board.isAsAsked());
}

TEST(ConsoleMasterNodeBoard, AWatchedNodeThatComesBackUnchangedIsFoundAgain)
{
    OneNode watch(Command::watch);
    watch.connect();
    watch.receive(MasterMessageType::DAEMON_STATUS, OneNode::nobody);
    watch.board.disconnected(0, 1000);
    EXPECT_STREQ(stateName(watch.node()), "disconnected");
    watch.connect(60000);
    watch.receive(MasterMessageType::DAEMON_STATUS, OneNode::nobody, 60000);
    watch.receive(MasterMessageType::DAEMON_STATUS, OneNode::nobody, 61000);
    EXPECT_EQ(watch.told(),
              (std::vector{NodeEvent::found, NodeEvent::disconnected, NodeEvent::found}));
    EXPECT_STREQ(stateName(watch.node()), "free");
}

TEST(ConsoleMasterNodeBoard, ASecondConnectionReplacesTheFirst)
{
    OneNode watch(Command::watch);
    watch.connect();
    watch.receive(MasterMessageType::DAEMON_STATUS, OneNode::nobody);
    watch.connect(5000);
    watch.receive(MasterMessageType::DAEMON_STATUS, OneNode::nobody, 5000);
    EXPECT_EQ(watch.told(),
              (std::vector{NodeEvent::found, NodeEvent::disconnected, NodeEvent::found}));
}

TEST(ConsoleMasterNodeBoard, RecordsThatDaemonsDoNotSendAreReportedAndIgnored)
{
    auto held = OneNode::held();
    held.receive(MasterMessageType::START_REQUEST, OneNode::other);
    EXPECT_EQ(held.told(), std::vector{NodeEvent::invalidRecord});
    EXPECT_STREQ(stateName(held.node()), "running");
}

} // namespace
} // namespace quelta::test
