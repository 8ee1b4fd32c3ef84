// A stop request arrives at every moment of a start.
#include "support/LogGate.h"
#include "support/RaceTest.h"

namespace quelta::test {
namespace {

class RacesTestStart : public RaceTest
{
protected:
    RacesTestStart()
    {
        startRaceDaemon();
        master = introduce();
    }

    ~RacesTestStart() override { daemon.reset(); }

    std::unique_ptr<FakeMaster> master;
};

/** The thread that logs the line blocks in that call until the stop has been sent. A moment later
    it continues, along with the thread that serves the stop. Each moment has two delays. */
TEST_F(RacesTestStart, AStopAtEveryMomentOfAStartIsObeyedInTime)
{
    const std::string moments[] = {
        "received start request from master " + master->getName(),
        "starting slave for master " + master->getName(),
        "\n",
        "slave connection created",
        "slave connection established",
        "started to monitor slave",
        "received heartbeat message 'AUTHENTICATING' from slave",
        "received heartbeat message 'SLAVE_INFO' from slave",
        "slave has version 4000000 and provides 1 GPU(s)",
        "notifying master " + master->getName() + " that the slave is initialized and running",
        "received heartbeat message 'SLAVE_STATUS' from slave",
    };

    for (const auto delayMs : {0, 7})
        for (const auto& moment : moments)
        {
            SCOPED_TRACE(moment);
            log.clear();
            LogGate gate(moment);
            master->send(startRequest);
            ASSERT_TRUE(gate.waitUntilReached());
            master->send(stopRequest);
            shiftMoment(delayMs);
            gate.open();
            expectStopped(*master);
        }
}

/** From a stop in the same packet to a stop of a running slave. */
TEST_F(RacesTestStart, AStopAnyTimeAfterAStartIsObeyedInTime)
{
    for (int delayMs = 0; delayMs <= 160; delayMs += 16)
    {
        SCOPED_TRACE(delayMs);
        master->send(startRequest);
        shiftMoment(delayMs);
        master->send(stopRequest);
        expectStopped(*master);
    }
}

TEST_F(RacesTestStart, StartsAndStopsInOneGoAreAllServedInOrder)
{
    constexpr int pairs = 5;

    for (int i = 0; i < pairs; ++i)
    {
        master->send(startRequest);
        master->send(stopRequest);
    }

    std::vector<uint32_t> replies;
    const auto time = timeOf([this, &replies] {
        while (replies.size() < 4 * pairs)
            if (const auto record = master->next(); !record)
                break;
            else if (record->type != slaveRunning)
                replies.push_back(record->type);
    });

    std::vector<uint32_t> expected;

    for (int i = 0; i < pairs; ++i)
        expected.insert(expected.end(), {daemonStatus, startReply, daemonStatus, stopReply});

    EXPECT_EQ(replies, expected);
    EXPECT_LT(time, pairs * stopBoundMs);
    expectFree(*master);
}

} // namespace
} // namespace quelta::test
