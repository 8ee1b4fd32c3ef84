// The DaemonNetworkThread's lock is held while joining JUCE threads, and each of these threads may
// be waiting for the same lock. Each test covers one such pair, which must not deadlock.
#include <algorithm>
#include <thread>

#include "support/DaemonTest.h"
#include "support/LogGate.h"
#include "support/Repeating.h"
#include "support/SlaveVoice.h"
#include "util/Timing.h"

namespace quelta::test {
namespace {

class LockMeetingsTest : public DaemonTest
{
protected:
    /** Destroys the daemon and expects that to take less than `milliseconds`. */
    void expectEndWithin(uint32_t milliseconds)
    {
        EXPECT_LT(timeOf([this] { daemon.reset(); }), milliseconds);
    }
};

/** Holder: the destructor, which stops the owner's slave, then closes the other master's
    connection. */
TEST_F(LockMeetingsTest, AReaderThreadWithARequestGivesUpWhenItsConnectionIsClosed)
{
    slave.play("[run]\non-stop exit-after 500\nconnect\ninfo\nwait 400\nbeat 50");
    startDaemon();
    std::unique_ptr<FakeMaster> masters[] = {introduce(), introduce()};
    const auto byAddress = [](const auto& a, const auto& b) {
        return a->getAddress() < b->getAddress();
    };
    std::sort(std::begin(masters), std::end(masters), byAddress);
    auto& owner = *masters[0]; // closed first
    auto& other = *masters[1];
    startSlaveFor(owner);
    other.nextTypes(1);

    std::thread requests([this, &other] {
        EXPECT_TRUE(log.waitForLine("closing down all existing master connections (2)..."));

        for (int i = 0; i < 20; ++i)
            other.send(scanRequest);
    });
    expectEndWithin(500 + 1'500);
    requests.join();

    // It is told that the slave was stopped; its requests get no reply.
    EXPECT_TRUE(other.waitForDisconnection());
    EXPECT_EQ(other.nextTypes(1), std::vector<uint32_t>{daemonStatus});
    EXPECT_TRUE(other.hasNoRecord());
}

/** Holder: a reader thread that serves the owner's stop and joins the SlaveProcess thread. */
TEST_F(LockMeetingsTest, TheRunningNotificationGivesUpWhenTheSlaveIsStopped)
{
    slave.play("[run]\nhang");
    startDaemon({.gracefulStop = 200});
    const auto owner = introduce();
    owner->send(startRequest);
    EXPECT_EQ(owner->nextTypes(2), (std::vector<uint32_t>{daemonStatus, startReply}));
    const auto port = waitForNumberIn("using free port # to communicate with slave");
    ASSERT_TRUE(port);
    SlaveVoice voice(static_cast<uint16_t>(*port));
    ASSERT_TRUE(log.waitForLine("started to monitor slave"));

    LogGate stopIsServed("received stop request from master " + owner->getName());
    owner->send(stopRequest);
    ASSERT_TRUE(stopIsServed.waitUntilReached());
    voice.sayInfo();
    allowArrivalAtLock(3 * timing::slavePollMs); // a poll has to see the information first
    stopIsServed.open();

    // One poll to notice, 200 ms of graceful stop for a process that does not connect.
    EXPECT_LT(timeOf([&owner] {
                  EXPECT_EQ(owner->nextTypes(2), (std::vector<uint32_t>{daemonStatus, stopReply}));
              }),
              200u + 1'500u);
    EXPECT_FALSE(wasLogged("notifying master " + owner->getName() +
                           " that the slave is initialized and running"));
    EXPECT_EQ(voice.hear(), framedStopMessage);
}

/** Holder: a reader thread that serves the owner's stop during the graceful stop of a hanging
    slave. */
TEST_F(LockMeetingsTest, AFailureNotificationThatIsDueGivesUpWhenTheSlaveIsStopped)
{
    slave.play("[run]\non-stop ignore\nconnect\nstatus\nhang");
    startDaemon({.heartBeat = 200, .gracefulStop = 1'000});
    const auto owner = introduce();
    owner->send(startRequest);
    EXPECT_EQ(owner->nextTypes(2), (std::vector<uint32_t>{daemonStatus, startReply}));
    ASSERT_TRUE(log.waitForLine("detected that heart beat of slave stopped -> stopping slave"));
    owner->send(stopRequest);
    EXPECT_LT(timeOf([&owner] {
                  EXPECT_EQ(owner->nextTypes(2), (std::vector<uint32_t>{daemonStatus, stopReply}));
              }),
              1'000u + 1'500u);
    EXPECT_TRUE(wasLogged("slave didn't stop gracefully, killing process by force"));
}

/** The same, with the SlaveProcess thread at the lock before it is asked to exit. */
TEST_F(LockMeetingsTest, AFailureNotificationThatWaitsGivesUpWhenTheSlaveIsStopped)
{
    slave.play("[run]\nconnect\ninfo\nwait 150\nexit 3");
    startDaemon();
    const auto owner = introduce();
    LogGate crashIsSeen("slave crashed or was stopped via CTRL-C");
    startSlaveFor(*owner);
    ASSERT_TRUE(crashIsSeen.waitUntilReached());

    // The reader thread takes the lock, then blocks in its first log call, since the gate holds the
    // log's lock.
    owner->send(stopRequest);
    allowArrivalAtLock();
    crashIsSeen.open();
    EXPECT_LT(timeOf([&owner] { EXPECT_TRUE(owner->nextOf(stopReply)); }), 1'500u);
}

/** Holder: the destructor, which joins the discovery thread. */
TEST_F(LockMeetingsTest, TheDiscoveryThreadGivesUpWhenItIsStopped)
{
    constexpr int rounds = 10; // the thread is at the lock in almost every round

    for (int round = 0; round < rounds; ++round)
    {
        startDaemon();
        LogGate masterIsDetected("detected new master on address 127.0.0.1:1");
        BeaconSender sender(settings.daemonPort);
        const Repeating beacons([&sender] {
            sender.send(makeRecord(scanRequest, {0x7F000001, 1}));
        });
        std::thread opener([&masterIsDetected] {
            EXPECT_TRUE(masterIsDetected.waitUntilReached());
            allowArrivalAtLock(); // of the destructor
            masterIsDetected.open();
        });
        ASSERT_TRUE(masterIsDetected.waitUntilReached());
        expectEndWithin(1'500); // a thread that does not give up is killed after 5,000
        opener.join();
        log.clear();
    }
}

} // namespace
} // namespace quelta::test
