// The DaemonNetworkThread's lock is held by whoever waits for one of the framework's threads to
// end, and each of these threads may be waiting for that very lock. There are four such meetings,
// and none may last.
#include <algorithm>
#include <atomic>
#include <thread>

#include "support/DaemonTest.h"
#include "support/LogGate.h"
#include "support/SlaveVoice.h"

namespace quelta::test {
namespace {

/** Long enough for any thread to come to the lock that it is heading for. Should it not be there
    yet on a busy machine, the test is a weaker one but still right. */
constexpr int arrivalMs = 300;

class LockMeetingsTest : public DaemonTest
{
protected:
    /** Ends the daemon; must not take longer than the slave does and this. */
    void expectEndWithin(uint32_t milliseconds)
    {
        EXPECT_LT(timeOf([this] { daemon.reset(); }), milliseconds);
    }
};

/** Holder: the destructor, which stops the owner's slave and then closes the other master's
    connection. */
TEST_F(LockMeetingsTest, AReaderThreadThatBringsARequestGivesUpWhenItsConnectionIsClosed)
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

    // It hears that the slave was stopped, and nothing of its requests.
    EXPECT_TRUE(other.waitForDisconnection());
    EXPECT_EQ(other.nextTypes(1), std::vector<uint32_t>{daemonStatus});
    EXPECT_TRUE(other.hasNoRecord());
}

/** Holder: a reader thread that serves the owner's stop, and waits for the slave's thread. */
TEST_F(LockMeetingsTest, ASlavesThreadThatReportsASlaveRunningGivesUpWhenTheSlaveIsStopped)
{
    slave.play("[run]\nhang");
    startDaemon({10'000, 4'000, 10'000, 200});
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
    juce::Thread::sleep(arrivalMs);
    stopIsServed.open();

    // One poll to notice, 200 ms to wait for the process that does not listen.
    EXPECT_LT(timeOf([&owner] {
                  EXPECT_EQ(owner->nextTypes(2), (std::vector<uint32_t>{daemonStatus, stopReply}));
              }),
              200u + 1'500u);
    EXPECT_FALSE(wasLogged("notifying master " + owner->getName() +
                           " that the slave is initialized and running"));
    EXPECT_EQ(voice.hear(), framedStopMessage);
}

/** Holder: a reader thread that serves the owner's stop while a hanging slave is given time to
    end. */
TEST_F(LockMeetingsTest, ASlavesThreadThatIsAboutToReportAFailureGivesUpWhenTheSlaveIsStopped)
{
    slave.play("[run]\non-stop ignore\nconnect\nstatus\nhang");
    startDaemon({10'000, 4'000, 200, 1'000});
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

/** The same, with the slave's thread at the lock before it is asked to exit. */
TEST_F(LockMeetingsTest, ASlavesThreadThatAlreadyWaitsToReportAFailureGivesUpAsWell)
{
    slave.play("[run]\nconnect\ninfo\nwait 150\nexit 3");
    startDaemon();
    const auto owner = introduce();
    LogGate crashIsSeen("slave crashed or was stopped via CTRL-C");
    startSlaveFor(*owner);
    ASSERT_TRUE(crashIsSeen.waitUntilReached());

    // The reader thread takes the lock and then waits in its first line, since the gate holds the
    // log.
    owner->send(stopRequest);
    juce::Thread::sleep(arrivalMs);
    crashIsSeen.open();
    EXPECT_LT(timeOf([&owner] { EXPECT_TRUE(owner->nextOf(stopReply)); }), 1'500u);
}

/** Holder: the destructor, which waits for the discovery thread. */
TEST_F(LockMeetingsTest, TheDiscoveryThreadGivesUpWhenItIsStopped)
{
    constexpr int rounds = 10; // in each of which it is at the lock with near certainty

    for (int round = 0; round < rounds; ++round)
    {
        startDaemon();
        LogGate masterIsDetected("detected new master on address 127.0.0.1:1");
        std::atomic<bool> enough{false};
        std::thread beacons([this, &enough] {
            BeaconSender sender(settings.daemonPort);
            const auto beacon = makeRecord(scanRequest, {0x7F000001, 1});

            while (!enough)
                sender.send(beacon);
        });
        std::thread opener([&masterIsDetected] {
            EXPECT_TRUE(masterIsDetected.waitUntilReached());
            juce::Thread::sleep(20); // for the destructor to come to the lock
            masterIsDetected.open();
        });
        ASSERT_TRUE(masterIsDetected.waitUntilReached());
        expectEndWithin(1'500); // a thread that does not give up is killed after 5,000
        enough = true;
        opener.join();
        beacons.join();
        log.clear();
    }
}

} // namespace
} // namespace quelta::test
