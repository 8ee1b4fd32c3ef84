#include "slave/SlaveMonitor.h"

#include <memory>
#include <optional>

#include "support/FakeAwakeClock.h"
#include "support/SlaveVoice.h"
#include "support/ThreadedTest.h"

namespace quelta::test {
namespace {

constexpr uint16_t daemonPort = 5000;

class SlaveMonitorTest : public ThreadedTest
{
protected:
    SlaveStatus getStatus() const
    {
        SlaveStatus status = STATUS_STARTING;
        uint32_t silence = 0;
        monitor.getStatus(status, silence);
        return status;
    }

    uint32_t getSilence() const
    {
        SlaveStatus status = STATUS_STARTING;
        uint32_t silence = 0;
        monitor.getStatus(status, silence);
        return silence;
    }

    bool waitForStatus(SlaveStatus status) const
    {
        return pollUntil([this, status] { return getStatus() == status; });
    }

    /** Connects a slave. */
    std::unique_ptr<SlaveVoice> connect()
    {
        log.clear();
        auto slave = std::make_unique<SlaveVoice>(monitor.getPort());
        EXPECT_TRUE(log.waitForLine("started to monitor slave"));
        return slave;
    }

    MonitorPort lastMonitorPort{0};
    SlaveMonitor monitor{daemonPort, lastMonitorPort};
};

TEST_F(SlaveMonitorTest, TheListeningPortIsLogged)
{
    EXPECT_NE(monitor.getPort(), 0);
    EXPECT_EQ(log.lines(), Lines{"using free port " + std::to_string(monitor.getPort()) +
                                 " to communicate with slave"});
}

TEST_F(SlaveMonitorTest, TheSlaveIsStartingBeforeItsFirstMessage)
{
    EXPECT_EQ(getStatus(), STATUS_STARTING);
    EXPECT_LT(getSilence(), 1000u);
    EXPECT_EQ(monitor.getSlaveVersion(), 0u);
    EXPECT_EQ(monitor.getNumGpus(), 0u);
}

TEST_F(SlaveMonitorTest, ConnectingEndsTheSilence)
{
    ASSERT_TRUE(pollUntil([this] { return getSilence() >= 200; }));
    const auto slave = connect();
    EXPECT_TRUE(pollUntil([this] { return getSilence() < 200; }));
    EXPECT_EQ(getStatus(), STATUS_STARTING);
}

TEST_F(SlaveMonitorTest, TheSilenceDoesNotIncludeTheMachinesSleep)
{
    FakeAwakeClock clock;
    const auto slave = connect();
    slave->sayStatus();
    ASSERT_TRUE(waitForStatus(STATUS_RUNNING));
    EXPECT_EQ(getSilence(), 0u);
    clock.advance(7'000);
    EXPECT_EQ(getSilence(), 7'000u);
    slave->sayAuthenticating();
    ASSERT_TRUE(waitForStatus(STATUS_AUTHENTICATING));
    EXPECT_EQ(getSilence(), 0u);
}

TEST_F(SlaveMonitorTest, ConnectingAndLeavingAreLogged)
{
    {
        const auto slave = connect();
        EXPECT_EQ(log.lines(), (Lines{"slave connection created", "slave connection established",
                                      "started to monitor slave"}));
        log.clear();
    }

    EXPECT_TRUE(log.waitForLine("stopped monitoring slave"));
    EXPECT_EQ(log.lines(), (Lines{"slave connection closed", "stopped monitoring slave"}));
}

TEST_F(SlaveMonitorTest, TheLatestMessageSetsTheStatusInAnyOrder)
{
    const auto slave = connect();
    slave->sayAuthenticating();
    EXPECT_TRUE(waitForStatus(STATUS_AUTHENTICATING));
    slave->sayInfo();
    EXPECT_TRUE(waitForStatus(STATUS_INITIALIZED));
    slave->sayStatus();
    EXPECT_TRUE(waitForStatus(STATUS_RUNNING));
    slave->sayAuthenticating();
    EXPECT_TRUE(waitForStatus(STATUS_AUTHENTICATING));
}

TEST_F(SlaveMonitorTest, EveryKindOfHeartBeatEndsTheSilence)
{
    const auto slave = connect();

    for (int message = 0; message < 3; ++message)
    {
        ASSERT_TRUE(pollUntil([this] { return getSilence() >= 200; }));
        message == 0   ? slave->sayAuthenticating()
        : message == 1 ? slave->sayInfo()
                       : slave->sayStatus();
        EXPECT_TRUE(pollUntil([this] { return getSilence() < 200; })) << message;
    }
}

TEST_F(SlaveMonitorTest, TheLatestInformationReplacesEarlierOnes)
{
    const auto slave = connect();
    slave->sayInfo();
    ASSERT_TRUE(waitForStatus(STATUS_INITIALIZED));
    EXPECT_EQ(monitor.getSlaveVersion(), 513u);
    EXPECT_EQ(monitor.getNumGpus(), 2u);

    slave->say("0D 72 CE 7F 01 00 00 00 01 00 00 00 00 00 00 00 FF FF FF FF");
    EXPECT_TRUE(pollUntil([this] { return monitor.getSlaveVersion() == 0xFFFFFFFFu; }));
    EXPECT_EQ(monitor.getNumGpus(), 0u);
}

TEST_F(SlaveMonitorTest, MessagesOfOtherTypesAreRefusedAndAreNotHeartBeats)
{
    const auto slave = connect();
    slave->sayStatus();
    ASSERT_TRUE(waitForStatus(STATUS_RUNNING));
    ASSERT_TRUE(pollUntil([this] { return getSilence() >= 50; }));

    for (const auto* type : {"03", "04", "05"})
    {
        log.clear();
        slave->say(std::string("0D 72 CE 7F 01 00 00 00 ") + type +
                   " 00 00 00 00 00 00 00 00 00 00 00");
        EXPECT_TRUE(log.waitForLine("received invalid status message from slave"));
        EXPECT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(getStatus(), STATUS_RUNNING);
        EXPECT_GE(getSilence(), 50u);
    }
}

TEST_F(SlaveMonitorTest, MalformedMessagesAreLoggedTwiceAndChangeNothing)
{
    const auto slave = connect();
    ASSERT_TRUE(pollUntil([this] { return getSilence() >= 50; }));

    const auto expectRejected = [this, &slave](const std::string& hex, const std::string& text) {
        log.clear();
        slave->say(hex);
        EXPECT_TRUE(log.waitForLine("received invalid message from slave"));
        EXPECT_EQ(log.lines(), (Lines{text, "received invalid message from slave"}));
        EXPECT_EQ(getStatus(), STATUS_STARTING);
        EXPECT_GE(getSilence(), 50u);
    };

    expectRejected("0D 72 CE 7F 01 00 00 00 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid size (24)");
    expectRejected("00", "slave daemon message had invalid size (1)");
    expectRejected("7F CE 72 0D 01 00 00 00 02 00 00 00 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid header");
    expectRejected("0D 72 CE 7F 02 00 00 00 02 00 00 00 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid version (2)");
    expectRejected("0D 72 CE 7F 01 00 00 00 FF FF FF FF 00 00 00 00 00 00 00 00",
                   "slave daemon message had invalid type (-1)");
}

TEST_F(SlaveMonitorTest, ASecondSlaveIsRefused)
{
    const auto slave = connect();
    SlaveVoice other(monitor.getPort());
    EXPECT_TRUE(log.waitForLine("multiple connections requested for slave monitor"));
    EXPECT_TRUE(other.waitUntilClosed());

    slave->sayStatus();
    EXPECT_TRUE(waitForStatus(STATUS_RUNNING));
}

TEST_F(SlaveMonitorTest, AReturningSlaveIsRefused)
{
    {
        const auto slave = connect();
        slave->sayInfo();
        ASSERT_TRUE(waitForStatus(STATUS_INITIALIZED));
        ASSERT_TRUE(pollUntil([this] { return getSilence() >= 50; }));
    }

    ASSERT_TRUE(log.waitForLine("stopped monitoring slave"));
    EXPECT_GE(getSilence(), 50u);
    SlaveVoice again(monitor.getPort());
    EXPECT_TRUE(log.waitForLine("multiple connections requested for slave monitor"));
    EXPECT_TRUE(again.waitUntilClosed());
    EXPECT_EQ(getStatus(), STATUS_INITIALIZED);
}

TEST_F(SlaveMonitorTest, TheStopMessageHasTheseBytes)
{
    const auto slave = connect();
    slave->sayStatus();
    ASSERT_TRUE(waitForStatus(STATUS_RUNNING));
    monitor.sendStopMessage();
    EXPECT_EQ(slave->hear(), framedStopMessage);
}

TEST_F(SlaveMonitorTest, AStopWithoutASlaveLogsNothing)
{
    log.clear();
    monitor.sendStopMessage();
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(SlaveMonitorTest, AnEarlyStopIsDeliveredOnceTheSlaveConnects)
{
    monitor.sendStopMessage();
    const auto slave = connect();
    EXPECT_EQ(slave->hear(), framedStopMessage);

    slave->sayStatus();
    ASSERT_TRUE(waitForStatus(STATUS_RUNNING));
    monitor.sendStopMessage();
    EXPECT_EQ(slave->hear(), framedStopMessage); // so the first one was sent only once
}

TEST_F(SlaveMonitorTest, AStopMessageForALostSlaveFails)
{
    connect().reset();
    ASSERT_TRUE(log.waitForLine("stopped monitoring slave"));
    log.clear();
    monitor.sendStopMessage();
    EXPECT_EQ(log.lines(), Lines{"failed to send stop message to slave"});
}

/** The detail flag and the prefixes are set before the monitor starts its thread. */
class SlaveMonitorLogTest : public ThreadedTest
{
protected:
    SlaveMonitorLogTest()
    {
        flags::daemonDetail = 1;
        flags::logPrefix = 1;
        monitor.emplace(daemonPort, lastMonitorPort);
        slave.emplace(monitor->getPort());
        EXPECT_TRUE(log.waitForLine("daemon    : started to monitor slave"));
        log.clear();
    }

    MonitorPort lastMonitorPort{0};
    std::optional<SlaveMonitor> monitor;
    std::optional<SlaveVoice> slave;
};

TEST_F(SlaveMonitorLogTest, EveryMessageIsLoggedInDetail)
{
    slave->sayAuthenticating();
    slave->sayStatus();
    slave->sayInfo();
    slave->say("0D 72 CE 7F 01 00 00 00 04 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_TRUE(log.waitForLine("ERROR     : received invalid status message from slave"));
    EXPECT_EQ(log.lines(),
              (Lines{"daemon    : received heartbeat message 'AUTHENTICATING' from slave",
                     "daemon    : received heartbeat message 'SLAVE_STATUS' from slave",
                     "daemon    : received heartbeat message 'SLAVE_INFO' from slave",
                     "daemon    : slave has version 513 and provides 2 GPU(s)",
                     "daemon    : received heartbeat message 'unknown' from slave",
                     "ERROR     : received invalid status message from slave"}));
}

TEST_F(SlaveMonitorLogTest, FaultsAreLoggedAsErrors)
{
    slave->say("00");
    EXPECT_TRUE(log.waitForLine("ERROR     : received invalid message from slave"));
    EXPECT_TRUE(wasLogged("ERROR     : slave daemon message had invalid size (1)"));
    SlaveVoice other(monitor->getPort());
    EXPECT_TRUE(log.waitForLine("ERROR     : multiple connections requested for slave monitor"));
    slave.reset();
    EXPECT_TRUE(log.waitForLine("daemon    : stopped monitoring slave"));
    monitor->sendStopMessage();
    EXPECT_TRUE(wasLogged("ERROR     : failed to send stop message to slave"));
}

class SlaveMonitorFramesTest : public SlaveMonitorTest
{};

/** Bytes that are not frames of this protocol end the connection or are dropped, without a log
    line. */
TEST_F(SlaveMonitorFramesTest, ForeignAndTruncatedFramesDoNoHarm)
{
    for (const auto* bytes : {"DD CC BB AA 14 00 00 00", "2C 9E B4 F2", "2C 9E B4 F2 00 00 00 00",
                              "2C 9E B4 F2 FF FF FF FF"})
    {
        SlaveMonitor attacked(daemonPort, lastMonitorPort);
        log.clear();
        const auto sent = fromHex(bytes);

        {
            juce::StreamingSocket stranger;
            ASSERT_TRUE(stranger.connect("127.0.0.1", attacked.getPort(), 3000));
            ASSERT_TRUE(log.waitForLine("started to monitor slave"));
            stranger.write(sent.data(), static_cast<int>(sent.size()));
        }

        SlaveStatus status = STATUS_RUNNING;
        uint32_t silence = 0;
        attacked.getStatus(status, silence);
        EXPECT_EQ(status, STATUS_STARTING) << bytes;
        EXPECT_FALSE(wasLogged("received invalid message from slave")) << bytes;
    }
}

TEST_F(SlaveMonitorFramesTest, AnEmptyFrameIsDropped)
{
    const auto slave = connect();
    slave->say("");
    slave->sayStatus();
    EXPECT_TRUE(waitForStatus(STATUS_RUNNING));
}

} // namespace
} // namespace quelta::test
