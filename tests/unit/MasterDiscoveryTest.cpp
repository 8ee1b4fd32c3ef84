#include "master/MasterDiscovery.h"

#include <condition_variable>
#include <mutex>

#include "platform/Paths.h"
#include "support/BeaconSender.h"
#include "support/Descriptors.h"
#include "support/MasterRecords.h"
#include "support/Repeating.h"
#include "support/ThreadedTest.h"

namespace quelta::test {
namespace {

class RecordingListener final : public MasterDiscoveryListener
{
public:
    void masterDetected(const MasterAddress& address) override
    {
        const std::lock_guard guard(lock);
        heard.push_back(formatAddress(address));
        changed.notify_all();
    }

    /** Waits until `count` masters have been reported. */
    Lines waitFor(size_t count)
    {
        std::unique_lock guard(lock);
        changed.wait_for(guard, LogCapture::hangLimit,
                         [this, count] { return heard.size() >= count; });
        return heard;
    }

    size_t count()
    {
        const std::lock_guard guard(lock);
        return heard.size();
    }

private:
    std::mutex lock; ///< Guards `heard`.
    std::condition_variable changed;
    Lines heard;
};

constexpr auto decodeLine = "failed to decode beacon message from master 127.0.0.1:0";

class MasterDiscoveryTest : public ThreadedTest
{
protected:
    void start()
    {
        discovery.setListener(&listener);
        discovery.startThread();
        ASSERT_TRUE(log.waitForLine("start listening for masters on port " + std::to_string(port)));
        sendUntilReceived();
        log.clear();
    }

    /** The line is logged before the socket is bound, and earlier datagrams are lost. */
    void sendUntilReceived()
    {
        ASSERT_TRUE(pollUntil([this] {
            sender.send(Bytes(1));
            return wasLogged(decodeLine);
        }));

        // Datagrams on the loopback keep their order, so this one is served last.
        sender.send(Bytes(3));
        ASSERT_TRUE(log.waitForLine("master daemon message has invalid size (3)"));
        ASSERT_TRUE(pollUntil([this] { return log.lines().back() == decodeLine; }));
    }

    void expectRejected(const Bytes& datagram, const std::string& text)
    {
        log.clear();
        sender.send(datagram);
        EXPECT_TRUE(log.waitForLine(decodeLine));
        EXPECT_EQ(log.lines(), (Lines{text, decodeLine}));
    }

    const uint16_t port = findFreeBeaconPort();
    BeaconSender sender{port};
    RecordingListener listener;
    MasterDiscovery discovery{port};
};

constexpr MasterAddress someMaster{0x0A000005, 21000};

TEST_F(MasterDiscoveryTest, AMasterIsReportedByTheAddressInItsBeaconNotByTheSender)
{
    start();
    sender.send(makeRecord(scanRequest, someMaster));
    EXPECT_EQ(listener.waitFor(1), Lines{"10.0.0.5:21000"});
}

TEST_F(MasterDiscoveryTest, EveryBeaconIsReported)
{
    start();
    sender.send(makeRecord(scanRequest, someMaster));
    sender.send(makeRecord(scanRequest, {0x7F000002, 1}));
    sender.send(makeRecord(scanRequest, someMaster));
    EXPECT_EQ(listener.waitFor(3), (Lines{"10.0.0.5:21000", "127.0.0.2:1", "10.0.0.5:21000"}));
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(MasterDiscoveryTest, AnyValidRecordIsABeacon)
{
    start();

    for (uint32_t type = 0; type < 13; ++type)
        sender.send(makeRecord(type, someMaster));

    EXPECT_EQ(listener.waitFor(13), Lines(13, "10.0.0.5:21000"));
}

TEST_F(MasterDiscoveryTest, AMalformedDatagramIsReportedWithItsSenderAndPortZero)
{
    start();
    const auto valid = makeRecord(scanRequest, someMaster);
    expectRejected(Bytes(valid.begin(), valid.end() - 1),
                   "master daemon message has invalid size (91)");

    auto tooLong = valid;
    tooLong.push_back(0);
    expectRejected(tooLong, "master daemon message has invalid size (93)");

    auto foreign = valid;
    foreign[0] = 0x40;
    expectRejected(foreign, "master daemon message has invalid magic");

    auto old = valid;
    old[4] = 7;
    expectRejected(old, "master daemon message has invalid version (7)");

    expectRejected(makeRecord(13, someMaster), "master daemon message had invalid type (13)");
    expectRejected(makeRecord(0xFFFFFFFF, someMaster),
                   "master daemon message had invalid type (-1)");

    sender.send(valid);
    EXPECT_EQ(listener.waitFor(1), Lines{"10.0.0.5:21000"});
}

TEST_F(MasterDiscoveryTest, ALongDatagramIsTruncatedToAThousandBytes)
{
    start();
    expectRejected(Bytes(1000), "master daemon message has invalid size (1000)");
    expectRejected(Bytes(1001), "master daemon message has invalid size (1000)");
    expectRejected(Bytes(9000), "master daemon message has invalid size (1000)");
}

TEST_F(MasterDiscoveryTest, AnEmptyDatagramIsMalformed)
{
    start();
    expectRejected({}, "master daemon message has invalid size (0)");
}

TEST_F(MasterDiscoveryTest, MalformedDatagramsAreNotLoggedWhileTheFlagIsOff)
{
    flags::daemon = 0;
    discovery.setListener(&listener);
    discovery.startThread();

    EXPECT_TRUE(pollUntil([this] {
        sender.send(Bytes(91));
        sender.send(makeRecord(scanRequest, someMaster));
        return listener.count() > 0;
    }));
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(MasterDiscoveryTest, WithoutAListenerBeaconsAreDropped)
{
    discovery.startThread();
    ASSERT_TRUE(log.waitForLine("start listening for masters on port " + std::to_string(port)));
    sendUntilReceived();
    sender.send(makeRecord(scanRequest, someMaster));
    expectRejected(Bytes(91), "master daemon message has invalid size (91)");
}

TEST_F(MasterDiscoveryTest, ARequestToExitIsNoticedWithinAPoll)
{
    start();
    // The thread wakes every 100 ms; the rest is for a busy machine.
    EXPECT_LT(timeOf([this] { EXPECT_TRUE(discovery.stopThread(10'000)); }), 1'000u);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(MasterDiscoveryTest, ARequestToExitIsNoticedInAFloodOfDatagrams)
{
    start();
    const Repeating flood([this] { sender.send(makeRecord(scanRequest, someMaster)); });
    EXPECT_GE(listener.waitFor(100).size(), 100u);
    EXPECT_LT(timeOf([this] { EXPECT_TRUE(discovery.stopThread(10'000)); }), 1'000u);
}

TEST_F(MasterDiscoveryTest, ThePortIsFreeAfterTheEnd)
{
    start();
    discovery.stopThread(-1);
    platform::BeaconSocket next;
    EXPECT_TRUE(next.create());
    EXPECT_TRUE(next.bindTo(port));
}

TEST_F(MasterDiscoveryTest, APortThatIsTakenEndsDiscovery)
{
    flags::logPrefix = 1;
    platform::BeaconSocket taken;
    ASSERT_TRUE(taken.create());
    ASSERT_TRUE(taken.bindTo(port));
    discovery.startThread();
    ASSERT_TRUE(discovery.waitForThreadToExit(static_cast<int>(hangLimitMs)));

    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "daemon    : start listening for masters on port " + std::to_string(port));

    if (platform::absolutePathsHaveRoot())
        EXPECT_TRUE(lines[1].starts_with("ERROR     : failed to bind to address: ")) << lines[1];
    else
        EXPECT_EQ(lines[1], "ERROR     : failed to bind to address: Address already in use (98)");
}

TEST_F(MasterDiscoveryTest, ASocketThatTheSystemRefusesEndsDiscovery)
{
    if (!descriptorsCanBeCounted())
        GTEST_SKIP() << "this system has no limit on descriptors";

    flags::logPrefix = 1;
    const NoMoreDescriptors scarcity;
    discovery.startThread();
    ASSERT_TRUE(discovery.waitForThreadToExit(static_cast<int>(hangLimitMs)));
    EXPECT_EQ(log.lines(),
              (Lines{"daemon    : start listening for masters on port " + std::to_string(port),
                     "ERROR     : failed to create listen socket: Too many open files (24)"}));
}

TEST_F(MasterDiscoveryTest, AReceiveThatFailsEndsDiscovery)
{
    if (!descriptorsCanBeCounted())
        GTEST_SKIP() << "a socket's number cannot be given to something else here";

    start();
    ASSERT_TRUE(breakUdpSocket(port));
    ASSERT_TRUE(discovery.waitForThreadToExit(static_cast<int>(hangLimitMs)));
    EXPECT_EQ(log.lines(), Lines{"master discover receive failed"});
}

} // namespace
} // namespace quelta::test
