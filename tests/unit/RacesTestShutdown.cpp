// The daemon is destroyed while masters and slaves keep running.
#include <thread>

#include "support/LogGate.h"
#include "support/RaceTest.h"
#include "support/Repeating.h"

namespace quelta::test {
namespace {

class RacesTestShutdown : public RaceTest
{
protected:
    void expectEndWithin(uint32_t milliseconds)
    {
        EXPECT_LT(timeOf([this] { daemon.reset(); }), milliseconds);
    }
};

TEST_F(RacesTestShutdown, TheEndUnderAFloodOfScansTakesLessThanASecond)
{
    for (int round = 0; round < 8; ++round)
    {
        startRaceDaemon();
        const auto first = introduce();
        const auto second = introduce();
        const Repeating firstFlood([&first] { first->send(scanRequest); });
        const Repeating secondFlood([&second] { second->send(scanRequest); });
        EXPECT_TRUE(first->next());
        EXPECT_TRUE(second->next());
        expectEndWithin(endBoundMs);
        log.clear();
    }
}

TEST_F(RacesTestShutdown, TheEndUnderAFloodOfBeaconsTakesLessThanASecond)
{
    for (int round = 0; round < 8; ++round)
    {
        startRaceDaemon();
        uint16_t port = 1;
        BeaconSender sender(settings.daemonPort);
        const Repeating flood([&sender, &port] {
            sender.send(makeRecord(scanRequest, {0x7F000001, port}));
            port = port == 5'000 ? 1 : static_cast<uint16_t>(port + 1);
        });
        EXPECT_TRUE(log.waitForLine("detected new master on address 127.0.0.1:9"));
        expectEndWithin(endBoundMs);
        log.clear();
    }
}

/** Starts, stops and steals, so that the slave is in any state. At most one has to be stopped. */
TEST_F(RacesTestShutdown, TheEndUnderAFloodOfRequestsStopsTheSlave)
{
    for (int round = 0; round < 5; ++round)
    {
        startRaceDaemon();
        const auto first = introduce();
        const auto second = introduce();
        const Repeating firstFlood([&first] {
            first->send(startRequest);
            shiftMoment(5);
            first->send(stopRequest);
        });
        const Repeating secondFlood([&second] {
            second->send(stealRequest);
            shiftMoment(7);
        });
        EXPECT_TRUE(first->nextOf(startReply));
        shiftMoment(20 * round);

        // One stop may be in progress and a steal waiting; the destructor's stop comes on top.
        expectEndWithin(4 * stopBoundMs);
        log.clear();
    }
}

TEST_F(RacesTestShutdown, TheEndAtEveryMomentOfAStartStopsTheSlave)
{
    for (const std::string moment :
         {"starting slave for master #", "\n", "slave connection created",
          "slave connection established", "started to monitor slave",
          "received heartbeat message 'AUTHENTICATING' from slave",
          "slave has version 4000000 and provides 1 GPU(s)",
          "notifying master # that the slave is initialized and running",
          "received heartbeat message 'SLAVE_STATUS' from slave"})
    {
        SCOPED_TRACE(moment);
        startRaceDaemon();
        const auto owner = introduce();
        log.clear();
        LogGate gate(juce::String(moment).replace("#", owner->getName()).toStdString());
        owner->send(startRequest);
        ASSERT_TRUE(gate.waitUntilReached());
        std::thread opener([&gate] {
            allowArrivalAtLock(); // of the destructor
            gate.open();
        });
        expectEndWithin(stopBoundMs);
        opener.join();
    }
}

TEST_F(RacesTestShutdown, ASlaveThatIgnoresTheStopDoesNotDelayTheEnd)
{
    slave.play("[run]\non-stop ignore\nconnect\ninfo\nwait 400\nbeat 50");

    for (int round = 0; round < 3; ++round)
    {
        startRaceDaemon();
        const auto owner = introduce();
        startSlaveFor(*owner);
        log.clear();
        expectEndWithin(stopBoundMs);
        EXPECT_TRUE(wasLogged("slave didn't stop gracefully, killing process by force"));
    }
}

TEST_F(RacesTestShutdown, ASlaveThatCrashesMeanwhileDoesNotDelayTheEnd)
{
    slave.play("[run]\nconnect\ninfo\nwait 120\nexit 3");

    for (int delayMs = 0; delayMs <= 200; delayMs += 40)
    {
        SCOPED_TRACE(delayMs);
        startRaceDaemon();
        const auto owner = introduce();
        startSlaveFor(*owner);
        shiftMoment(delayMs);
        expectEndWithin(stopBoundMs);
        log.clear();
    }
}

TEST_F(RacesTestShutdown, MastersThatComeAndGoDoNotDelayTheEnd)
{
    for (int round = 0; round < 8; ++round)
    {
        startRaceDaemon();
        const auto first = introduce();
        const auto second = introduce();
        std::thread leaving([&first, &second] {
            first->vanish();
            second->hangUp();
        });
        expectEndWithin(endBoundMs);
        leaving.join();
        log.clear();
    }
}

} // namespace
} // namespace quelta::test
