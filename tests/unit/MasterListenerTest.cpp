#include "console_master/MasterListener.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "support/DaemonVoice.h"
#include "support/ThreadedTest.h"

namespace quelta::test {
namespace {

using Kind = PeerEvent::Kind;

constexpr uint32_t loopbackIp = 0x7F000001;
constexpr MasterAddress rig{0x0A000005, 21001};
constexpr size_t listenerIndex = 3;

/** A listener on a free port of the loopback. */
class MasterListenerTest : public ThreadedTest
{
protected:
    MasterListenerTest()
    {
        EXPECT_TRUE(listener->open(loopbackIp, 0));
        port = listener->getPort();
    }

    /** The next event; fails the test if none comes in a long time. */
    PeerEvent next()
    {
        if (arrived.empty())
            for (auto& event : inbox.take(LogCapture::hangLimit))
                arrived.push_back(std::move(event));

        if (arrived.empty())
        {
            ADD_FAILURE() << "no event has arrived";
            return {};
        }

        auto event = std::move(arrived.front());
        arrived.pop_front();
        return event;
    }

    std::vector<Kind> nextKinds(size_t count)
    {
        std::vector<Kind> kinds;

        while (kinds.size() < count)
            kinds.push_back(next().kind);

        return kinds;
    }

    Inbox inbox;
    std::unique_ptr<MasterListener> listener =
        std::make_unique<MasterListener>(listenerIndex, inbox);
    uint16_t port = 0;

private:
    std::deque<PeerEvent> arrived;
};

MasterDaemonMessage scanRequestOf(const MasterAddress& master)
{
    MasterDaemonMessage message;
    message.type = MasterMessageType::SCAN_REQUEST;
    message.masterAddress = master;
    message.masterText = "me";
    return message;
}

TEST_F(MasterListenerTest, PassesOnTheRecordsOfADaemonInOrder)
{
    DaemonVoice daemon(port);
    daemon.send(daemonStatus, rig, "rig");
    daemon.send(slaveRunning, rig, "rig");

    const auto connected = next();
    EXPECT_EQ(connected.kind, Kind::connected);
    EXPECT_EQ(connected.connection, (ConnectionId{listenerIndex, 1}));
    EXPECT_EQ(connected.peerIp, loopbackIp);

    const auto status = next();
    EXPECT_EQ(status.kind, Kind::record);
    EXPECT_EQ(status.connection, connected.connection);
    EXPECT_EQ(status.peerIp, loopbackIp);
    EXPECT_EQ(status.message.type, MasterMessageType::DAEMON_STATUS);
    EXPECT_EQ(status.message.masterAddress, rig);
    EXPECT_EQ(textBeforeNul(status.message.masterText), "rig");
    EXPECT_EQ(next().message.type, MasterMessageType::SLAVE_RUNNING);
}

TEST_F(MasterListenerTest, ReportsPayloadsThatAreNotRecordsAndKeepsTheConnection)
{
    auto foreign = makeRecord(daemonStatus, rig);
    foreign[0] ^= 1;
    DaemonVoice daemon(port);
    daemon.sendFrame(Bytes(91));
    daemon.sendFrame(Bytes(93));
    daemon.sendFrame(foreign);
    daemon.send(daemonStatus, rig);
    EXPECT_EQ(nextKinds(5),
              (std::vector{Kind::connected, Kind::junk, Kind::junk, Kind::junk, Kind::record}));
}

TEST_F(MasterListenerTest, ClosesAConnectionWithABrokenFrame)
{
    DaemonVoice foreign(port);
    EXPECT_EQ(next().kind, Kind::connected);
    foreign.sendRaw(Bytes(8, 0xEE));
    EXPECT_EQ(next().kind, Kind::lost);
    EXPECT_TRUE(foreign.waitUntilClosed());

    // 64 KiB and one byte are announced.
    DaemonVoice greedy(port);
    EXPECT_EQ(next().kind, Kind::connected);
    greedy.sendRaw({0x2C, 0x9E, 0xB4, 0xF2, 1, 0, 1, 0});
    EXPECT_EQ(next().kind, Kind::lost);
    EXPECT_TRUE(greedy.waitUntilClosed());
}

TEST_F(MasterListenerTest, DropsEmptyFramesAndReadsLargeOnesAsJunk)
{
    DaemonVoice daemon(port);
    daemon.sendFrame({});
    daemon.sendRaw({0x2C, 0x9E, 0xB4, 0xF2, 0, 0, 0, 0x80});
    daemon.sendFrame(Bytes(65536));
    daemon.send(daemonStatus, rig);
    EXPECT_EQ(nextKinds(3), (std::vector{Kind::connected, Kind::junk, Kind::record}));
}

TEST_F(MasterListenerTest, SendsARecordInAFrameToTheConnectionOfThatNumber)
{
    DaemonVoice first(port);
    EXPECT_EQ(next().connection.number, 1u);
    DaemonVoice second(port);
    EXPECT_EQ(next().connection.number, 2u);
    EXPECT_TRUE(listener->send(2, scanRequestOf(rig)));
    EXPECT_EQ(second.receiveFrame(), frame(makeRecord(scanRequest, rig, "me")));
    EXPECT_FALSE(first.waitForInput(0));
}

TEST_F(MasterListenerTest, SendingToALostOrUnknownConnectionFails)
{
    DaemonVoice daemon(port);
    EXPECT_EQ(next().kind, Kind::connected);
    daemon.close();
    const auto lost = next();
    EXPECT_EQ(lost.kind, Kind::lost);
    EXPECT_FALSE(listener->send(lost.connection.number, scanRequestOf(rig)));
    EXPECT_FALSE(listener->send(7, scanRequestOf(rig)));
}

TEST_F(MasterListenerTest, DoesNotReuseTheNumberOfALostConnection)
{
    {
        const DaemonVoice daemon(port);
        EXPECT_EQ(next().connection.number, 1u);
    }

    EXPECT_EQ(next().kind, Kind::lost);
    const DaemonVoice again(port);
    EXPECT_EQ(next().connection.number, 2u);
}

TEST_F(MasterListenerTest, DestructionClosesTheConnectionsOfItsDaemons)
{
    DaemonVoice idle(port), talking(port);
    EXPECT_EQ(nextKinds(2), (std::vector{Kind::connected, Kind::connected}));

    for (int i = 0; i < 100; ++i)
        talking.send(daemonStatus, rig);

    listener.reset();
    EXPECT_TRUE(idle.waitUntilClosed());
    EXPECT_TRUE(talking.waitUntilClosed());
    EXPECT_FALSE(juce::StreamingSocket().connect("127.0.0.1", port, 500));
}

TEST_F(MasterListenerTest, APortThatIsInUseCannotBeOpened)
{
    MasterListener second(4, inbox);
    EXPECT_FALSE(second.open(loopbackIp, port));
    EXPECT_TRUE(second.open(loopbackIp, 0));
    EXPECT_NE(second.getPort(), port);
}

} // namespace
} // namespace quelta::test
