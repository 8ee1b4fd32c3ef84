#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "console_master/NodeBoard.h"
#include "console_master/Report.h"
#include "console_master/StopRequest.h"

namespace quelta {

namespace {

using Type = MasterMessageType;

constexpr MasterAddress self{0x7F000001, 21000};
constexpr MasterAddress other{0x0A000005, 21001};
constexpr MasterAddress nobody{};
constexpr uint32_t timeoutMs = 5000;

MasterDaemonMessage record(Type type, const MasterAddress& owner)
{
    MasterDaemonMessage message;
    message.type = type;
    message.masterAddress = owner;
    message.masterText = owner == nobody ? "" : "rig";
    message.slaveAlias = "node7";
    message.numGpus = 2;
    message.slaveVersion = 4000001;
    return message;
}

/** A board with one node, "n:1", and what has become of it. */
class OneNode
{
public:
    explicit OneNode(Command command) : board(command, timeoutMs) { board.addNode("n:1", self, 0); }

    void connect(uint32_t now = 0) { board.connected(0, now); }
    void receive(Type type, const MasterAddress& owner, uint32_t now = 0)
    {
        board.received(0, record(type, owner), now);
    }

    std::vector<Type> sent()
    {
        std::vector<Type> types;

        for (const auto& request : board.takeRequests())
            types.push_back(request.type);

        return types;
    }

    std::vector<NodeEvent> told()
    {
        std::vector<NodeEvent> kinds;

        for (const auto& event : board.takeEvents())
            kinds.push_back(event.kind);

        return kinds;
    }

    const Node& node() const { return board.getNodes()[0]; }

    NodeBoard board;
};

/** A node whose slave runs for this master. */
OneNode heldNode()
{
    OneNode held(Command::hold);
    held.connect();
    held.receive(Type::DAEMON_STATUS, nobody);
    held.receive(Type::START_REPLY, self);
    held.receive(Type::SLAVE_RUNNING, self);
    held.sent();
    held.told();
    return held;
}

} // namespace

TEST(ConsoleMasterBoard, ScanAsksOnceAndIsDoneWithTheAnswer)
{
    OneNode scan(Command::scan);
    scan.connect();
    EXPECT_EQ(scan.sent(), std::vector{Type::SCAN_REQUEST});
    EXPECT_FALSE(scan.board.isDone());

    scan.receive(Type::DAEMON_STATUS, other);
    EXPECT_TRUE(scan.board.isDone());
    EXPECT_TRUE(scan.board.isAsAsked());
    EXPECT_STREQ(stateName(scan.node()), "owned");
}

TEST(ConsoleMasterBoard, ANodeThatDoesNotAnswerInTimeDidNotDoAsAsked)
{
    OneNode scan(Command::scan);
    scan.board.tick(timeoutMs - 1);
    EXPECT_FALSE(scan.board.isDone());

    scan.board.tick(timeoutMs);
    EXPECT_TRUE(scan.board.isDone());
    EXPECT_FALSE(scan.board.isAsAsked());
    EXPECT_EQ(scan.told(), std::vector{NodeEvent::noAnswer});
    EXPECT_STREQ(stateName(scan.node()), "no answer");
}

TEST(ConsoleMasterBoard, HoldStartsKeepsAndGivesBack)
{
    OneNode hold(Command::hold);
    hold.connect();
    hold.receive(Type::DAEMON_STATUS, nobody);
    EXPECT_EQ(hold.sent(), (std::vector{Type::SCAN_REQUEST, Type::START_REQUEST}));

    hold.receive(Type::DAEMON_STATUS, self);
    hold.receive(Type::START_REPLY, self);
    EXPECT_STREQ(stateName(hold.node()), "starting");
    hold.receive(Type::SLAVE_RUNNING, self);
    EXPECT_STREQ(stateName(hold.node()), "running");
    EXPECT_EQ(hold.told(),
              (std::vector{NodeEvent::found, NodeEvent::starting, NodeEvent::running}));

    hold.board.release(0);
    EXPECT_EQ(hold.sent(), std::vector{Type::STOP_REQUEST});
    EXPECT_STREQ(stateName(hold.node()), "stopping");
    hold.receive(Type::DAEMON_STATUS, nobody);
    EXPECT_FALSE(hold.board.isDone());
    hold.receive(Type::STOP_REPLY, nobody);
    EXPECT_EQ(hold.told(), std::vector{NodeEvent::stopped});
    EXPECT_TRUE(hold.board.isDone());
    EXPECT_TRUE(hold.board.isAsAsked());
}

TEST(ConsoleMasterBoard, HoldOfAnOwnedNodeIsRefused)
{
    OneNode hold(Command::hold);
    hold.connect();
    hold.receive(Type::DAEMON_STATUS, other);
    hold.receive(Type::START_REPLY, other);
    EXPECT_EQ(hold.told(), (std::vector{NodeEvent::found, NodeEvent::refused}));
    EXPECT_TRUE(hold.board.isDone());
    EXPECT_FALSE(hold.board.isAsAsked());
}

TEST(ConsoleMasterBoard, AFailedSlaveIsGivenBackAtOnce)
{
    auto held = heldNode();
    held.receive(Type::SLAVE_FAILED, self);
    EXPECT_EQ(held.sent(), std::vector{Type::STOP_REQUEST});

    held.receive(Type::STOP_REPLY, nobody);
    EXPECT_EQ(held.told(), (std::vector{NodeEvent::failed, NodeEvent::stopped}));
    EXPECT_TRUE(held.board.isDone());
    EXPECT_FALSE(held.board.isAsAsked());
}

TEST(ConsoleMasterBoard, AHeldNodeIsScannedEverySecondButOneScanAtATime)
{
    auto held = heldNode();
    held.board.tick(999);
    EXPECT_EQ(held.sent(), std::vector<Type>{});
    held.board.tick(1000);
    EXPECT_EQ(held.sent(), std::vector{Type::SCAN_REQUEST});
    held.board.tick(2000);
    EXPECT_EQ(held.sent(), std::vector<Type>{});

    held.board.tick(1000 + timeoutMs);
    held.board.tick(1001 + timeoutMs);
    EXPECT_EQ(held.told(), std::vector{NodeEvent::silent});
    EXPECT_STREQ(stateName(held.node()), "silent");

    held.receive(Type::DAEMON_STATUS, self, 7000);
    held.board.tick(7000);
    EXPECT_EQ(held.sent(), std::vector{Type::SCAN_REQUEST});
    EXPECT_STREQ(stateName(held.node()), "running");
}

TEST(ConsoleMasterBoard, AnotherOwnerMeansStolenAndNoOwnerMeansLost)
{
    auto stolen = heldNode();
    stolen.receive(Type::DAEMON_STATUS, other);
    EXPECT_EQ(stolen.told(), std::vector{NodeEvent::stolen});
    EXPECT_TRUE(stolen.board.isDone());
    EXPECT_FALSE(stolen.board.isAsAsked());
    EXPECT_EQ(stolen.sent(), std::vector<Type>{});

    auto lost = heldNode();
    lost.receive(Type::DAEMON_STATUS, nobody);
    EXPECT_EQ(lost.told(), std::vector{NodeEvent::lost});
    EXPECT_FALSE(lost.board.isAsAsked());
}

TEST(ConsoleMasterBoard, ALostConnectionMayComeBackInTime)
{
    auto back = heldNode();
    back.board.disconnected(0, 1000);
    back.board.tick(999 + timeoutMs);
    back.connect(999 + timeoutMs);
    EXPECT_EQ(back.sent(), std::vector{Type::SCAN_REQUEST});
    back.receive(Type::DAEMON_STATUS, self, 6000);
    EXPECT_EQ(back.told(), (std::vector{NodeEvent::disconnected, NodeEvent::found}));
    back.board.tick(6500);
    EXPECT_FALSE(back.board.isDone());
    EXPECT_TRUE(back.board.isAsAsked());

    auto gone = heldNode();
    gone.board.disconnected(0, 1000);
    gone.board.tick(1000 + timeoutMs);
    EXPECT_EQ(gone.told(), (std::vector{NodeEvent::disconnected, NodeEvent::lost}));
    EXPECT_STREQ(stateName(gone.node()), "gone");
    EXPECT_FALSE(gone.board.isAsAsked());
}

TEST(ConsoleMasterBoard, AStopRequestIsSentAgainWhenTheConnectionComesBack)
{
    auto held = heldNode();
    held.board.release(0);
    held.board.disconnected(0, 0);
    held.sent();
    held.connect(500);
    EXPECT_EQ(held.sent(), std::vector{Type::STOP_REQUEST});
}

TEST(ConsoleMasterBoard, GivingBackEndsInTimeEvenIfTheConnectionComesAndGoes)
{
    auto held = heldNode();
    EXPECT_EQ(held.board.countReleasing(), 0u);
    held.board.release(0);
    EXPECT_EQ(held.board.countReleasing(), 1u);
    EXPECT_EQ(held.board.releaseLimit(), timeoutMs + NodeBoard::stopAllowance);

    for (uint32_t now = 0; now < held.board.releaseLimit(); now += 1000)
    {
        held.board.disconnected(0, now);
        held.connect(now);
        held.board.tick(now);
        EXPECT_FALSE(held.board.isDone()) << now;
    }

    held.board.tick(held.board.releaseLimit());
    EXPECT_TRUE(held.board.isDone());
    EXPECT_EQ(held.board.countReleasing(), 0u);
    EXPECT_FALSE(held.board.isAsAsked());
}

TEST(ConsoleMasterBoard, StealAsksToTakeOverAndWaitsForTheOldSlaveToStop)
{
    OneNode steal(Command::steal);
    steal.connect();
    steal.receive(Type::DAEMON_STATUS, other);
    EXPECT_EQ(steal.sent(), (std::vector{Type::SCAN_REQUEST, Type::STEAL_REQUEST}));

    steal.board.tick(timeoutMs + NodeBoard::stopAllowance - 1);
    EXPECT_FALSE(steal.board.isDone());
    steal.receive(Type::DAEMON_STATUS, self);
    steal.receive(Type::STEAL_REPLY, self);
    EXPECT_EQ(steal.told(), (std::vector{NodeEvent::found, NodeEvent::starting}));
}

TEST(ConsoleMasterBoard, StopSucceedsOnlyIfTheNodeIsFreeAfterwards)
{
    OneNode freed(Command::stop);
    freed.connect();
    freed.receive(Type::DAEMON_STATUS, self);
    EXPECT_EQ(freed.sent(), (std::vector{Type::SCAN_REQUEST, Type::STOP_REQUEST}));
    freed.receive(Type::STOP_REPLY, nobody);
    EXPECT_TRUE(freed.board.isDone());
    EXPECT_TRUE(freed.board.isAsAsked());

    OneNode refused(Command::stop);
    refused.connect();
    refused.receive(Type::DAEMON_STATUS, other);
    refused.receive(Type::STOP_REPLY, other);
    EXPECT_TRUE(refused.board.isDone());
    EXPECT_FALSE(refused.board.isAsAsked());
}

TEST(ConsoleMasterBoard, WatchTellsChangesOnlyAndEndsAsAsked)
{
    OneNode watch(Command::watch);
    watch.board.tick(timeoutMs);
    watch.board.tick(2 * timeoutMs);
    watch.connect(20000);
    watch.receive(Type::DAEMON_STATUS, nobody, 20000);
    watch.receive(Type::DAEMON_STATUS, nobody, 21000);
    watch.receive(Type::DAEMON_STATUS, other, 22000);
    EXPECT_EQ(watch.told(),
              (std::vector{NodeEvent::noAnswer, NodeEvent::found, NodeEvent::changed}));

    EXPECT_FALSE(watch.board.isDone());
    watch.board.release(23000);
    EXPECT_TRUE(watch.board.isDone());
    EXPECT_TRUE(watch.board.isAsAsked());
}

TEST(ConsoleMasterBoard, AWatchedNodeThatComesBackUnchangedIsFoundAgain)
{
    OneNode watch(Command::watch);
    watch.connect();
    watch.receive(Type::DAEMON_STATUS, nobody);
    watch.board.disconnected(0, 1000);
    EXPECT_STREQ(stateName(watch.node()), "disconnected");
    watch.connect(60000);
    watch.receive(Type::DAEMON_STATUS, nobody, 60000);
    watch.receive(Type::DAEMON_STATUS, nobody, 61000);
    EXPECT_EQ(watch.told(),
              (std::vector{NodeEvent::found, NodeEvent::disconnected, NodeEvent::found}));
    EXPECT_STREQ(stateName(watch.node()), "free");
}

TEST(ConsoleMasterBoard, ASecondConnectionMeansThatTheFirstWasLostUnnoticed)
{
    OneNode watch(Command::watch);
    watch.connect();
    watch.receive(Type::DAEMON_STATUS, nobody);
    watch.connect(5000);
    watch.receive(Type::DAEMON_STATUS, nobody, 5000);
    EXPECT_EQ(watch.told(),
              (std::vector{NodeEvent::found, NodeEvent::disconnected, NodeEvent::found}));
}

TEST(ConsoleMasterBoard, RecordsThatNoDaemonSendsAreReportedAndChangeNothing)
{
    auto held = heldNode();
    held.receive(Type::START_REQUEST, other);
    EXPECT_EQ(held.told(), std::vector{NodeEvent::invalidRecord});
    EXPECT_STREQ(stateName(held.node()), "running");
}

TEST(ConsoleMasterStopRequest, ASignalWithinASecondOfTheFirstIsARepetitionAndALaterOneEndsAtOnce)
{
    using std::chrono::milliseconds;
    StopRequest request;
    EXPECT_FALSE(request.hasCome());
    EXPECT_TRUE(request.receive(milliseconds(0)));
    EXPECT_TRUE(request.hasCome());
    EXPECT_TRUE(request.receive(milliseconds(0)));
    EXPECT_TRUE(request.receive(milliseconds(999)));
    EXPECT_FALSE(request.receive(milliseconds(1000)));
    EXPECT_FALSE(request.receive(milliseconds(3600000)));
    EXPECT_TRUE(request.hasCome());
}

TEST(ConsoleMasterReport, TableHasAHeadAndALineForEveryNode)
{
    OneNode scan(Command::scan);
    scan.board.addNode("render07:5130", self, 0);
    scan.connect();
    scan.receive(Type::DAEMON_STATUS, other);
    scan.board.tick(timeoutMs);
    EXPECT_EQ(formatTable(scan.board.getNodes()),
              "NODE           ALIAS  GPUS  VERSION  STATE      OWNER           OWNER'S TEXT\n"
              "n:1            node7  2     4000001  owned      10.0.0.5:21001  rig\n"
              "render07:5130                        no answer\n");
}

TEST(ConsoleMasterReport, JsonHoldsTheSameWithNullForWhatIsNotKnown)
{
    OneNode scan(Command::scan);
    scan.board.addNode("m:2", self, 0);
    scan.connect();
    scan.receive(Type::DAEMON_STATUS, other);
    scan.board.tick(timeoutMs);
    EXPECT_EQ(
        formatJson(scan.board.getNodes()),
        "[\n  {\n    \"node\": \"n:1\",\n    \"state\": \"owned\",\n    \"alias\": \"node7\",\n"
        "    \"gpus\": 2,\n    \"slaveVersion\": 4000001,\n    \"owner\": \"10.0.0.5:21001\",\n"
        "    \"ownerText\": \"rig\"\n  },\n  {\n    \"node\": \"m:2\",\n"
        "    \"state\": \"no answer\",\n    \"alias\": null,\n    \"gpus\": null,\n"
        "    \"slaveVersion\": null,\n    \"owner\": null,\n    \"ownerText\": null\n  }\n]\n");
}

TEST(ConsoleMasterReport, EventsAreOneLineInEitherForm)
{
    auto held = heldNode();
    EXPECT_EQ(formatEvent(held.node(), NodeEvent::starting), "n:1 starting for 127.0.0.1:21000");
    EXPECT_EQ(formatEvent(held.node(), NodeEvent::running), "n:1 running");
    EXPECT_EQ(
        formatJsonEvent(held.node(), NodeEvent::running, "T"),
        R"({"time":"T","event":"running","node":"n:1","state":"running","alias":"node7","gpus":2,)"
        R"("slaveVersion":4000001,"owner":"127.0.0.1:21000","ownerText":"rig"})");

    held.receive(Type::DAEMON_STATUS, other);
    EXPECT_EQ(formatEvent(held.node(), NodeEvent::stolen),
              "n:1 stolen by 10.0.0.5:21001 (\"rig\")");
    EXPECT_EQ(
        formatEvent(held.node(), NodeEvent::found),
        "n:1 found: alias \"node7\", 2 GPUs, version 4000001, owned by 10.0.0.5:21001 (\"rig\")");
    EXPECT_EQ(formatListening(self), "listening as 127.0.0.1:21000");
    EXPECT_EQ(formatJsonListening(self, "T"),
              R"({"time":"T","event":"listening","address":"127.0.0.1:21000"})");
}

TEST(ConsoleMasterReport, TextsFromANodeCannotCommandTheTerminal)
{
    OneNode scan(Command::scan);
    auto message = record(Type::DAEMON_STATUS, nobody);
    message.slaveAlias = std::string("a\x1b[2J\n\xc3\xa9\xc2\x9b\0hidden", 17);
    scan.board.received(0, message, 0);
    EXPECT_EQ(formatEvent(scan.node(), NodeEvent::found),
              "n:1 found: alias \"a?[2J?\xc3\xa9?\", 2 GPUs, version 4000001, free");

    message.slaveAlias = "\xff\xfe broken";
    scan.board.received(0, message, 0);
    EXPECT_EQ(formatEvent(scan.node(), NodeEvent::found),
              "n:1 found: alias \"?? broken\", 2 GPUs, version 4000001, free");

    message.slaveAlias = "\xe0\x8a\x98 overlong";
    scan.board.received(0, message, 0);
    EXPECT_EQ(formatEvent(scan.node(), NodeEvent::found),
              "n:1 found: alias \"??? overlong\", 2 GPUs, version 4000001, free");
}

} // namespace quelta
