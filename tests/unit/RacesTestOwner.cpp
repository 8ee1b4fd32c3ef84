// The owner of the slave is lost, changes or sends requests while the slave changes state.
#include <algorithm>
#include <thread>

#include "support/LogGate.h"
#include "support/RaceTest.h"

namespace quelta::test {
namespace {

class RacesTestOwner : public RaceTest
{
protected:
    RacesTestOwner()
    {
        startRaceDaemon();
        witness = introduce();
    }

    ~RacesTestOwner() override { daemon.reset(); }

    /** Ticks until the witness is told that the slave is free. The bound is that of a stop and of
        the two ticks that noticing a lost master can take. */
    void expectFreedByTicks()
    {
        const auto time = timeOf([this] {
            EXPECT_TRUE(pollUntil([this] {
                tick();
                return askForOwner(*witness) == MasterAddress{};
            }));
        });
        EXPECT_LT(time, stopBoundMs + 2 * 500);
    }

    std::unique_ptr<FakeMaster> witness; ///< Owns nothing and receives all broadcasts.
};

TEST_F(RacesTestOwner, AnOwnerThatIsLostInMidStartLosesTheSlave)
{
    for (const std::string moment :
         {"starting slave for master #", "\n", "slave connection created",
          "started to monitor slave", "slave has version 4000000 and provides 1 GPU(s)",
          "notifying master # that the slave is initialized and running"})
    {
        SCOPED_TRACE(moment);
        log.clear();
        const auto owner = introduce();
        LogGate gate(juce::String(moment).replace("#", owner->getName()).toStdString());
        owner->send(startRequest);
        ASSERT_TRUE(gate.waitUntilReached());
        owner->vanish();
        gate.open();
        ASSERT_TRUE(log.waitForLine("disconnected from master " + owner->getName()));
        expectFreedByTicks();
        EXPECT_TRUE(wasLogged("stopping Quelta slave for master " + owner->getName()));
    }
}

TEST_F(RacesTestOwner, AnOwnerThatIsLostInMidStopLeavesTheSlaveFree)
{
    slave.play("[run]\non-stop exit-after 150\nconnect\ninfo\nwait 400\nbeat 50");

    for (int delayMs = 0; delayMs <= 240; delayMs += 60)
    {
        SCOPED_TRACE(delayMs);
        log.clear();
        const auto owner = introduce();
        startSlaveFor(*owner);
        owner->send(stopRequest);
        ASSERT_TRUE(log.waitForLine("stopping Quelta slave for master " + owner->getName()));
        shiftMoment(delayMs);
        owner->vanish();
        expectFreedByTicks();
        const auto lines = log.lines();
        EXPECT_EQ(std::count(lines.begin(), lines.end(),
                             "stopping Quelta slave for master " + owner->getName()),
                  1);
    }
}

/** Has every thief steal at the same time, and checks that each owns the slave in its turn. */
void stealAtTheSameTime(std::vector<std::unique_ptr<FakeMaster>>& thieves, uint32_t boundMs)
{
    std::vector<std::thread> threads;

    for (auto& thief : thieves)
        threads.emplace_back([&thief, boundMs] {
            const auto began = juce::Time::getMillisecondCounter();
            thief->send(stealRequest);
            const auto reply = thief->nextOf(stealReply);
            EXPECT_LT(juce::Time::getMillisecondCounter() - began, boundMs);
            ASSERT_TRUE(reply);
            EXPECT_EQ(formatAddress(reply->owner), thief->getName());
        });

    for (auto& thread : threads)
        thread.join();
}

/** The broadcasts that `master` has received until its stop is answered. */
size_t countChangesUntilStopped(FakeMaster& master)
{
    constexpr int maxRecords = 1'000;
    size_t changes = 0;
    master.send(stopRequest);

    for (int records = 0; records < maxRecords; ++records)
    {
        const auto record = master.next();

        if (!record || record->type == stopReply)
            break;

        changes += record->type == daemonStatus ? 1 : 0;
    }

    return changes;
}

/** Each steal takes a stop and a start; the thieves are served in turn. */
TEST_F(RacesTestOwner, StealsAtTheSameTimeAreServedOneByOne)
{
    constexpr int rounds = 4;
    constexpr size_t numThieves = 3;
    std::vector<std::unique_ptr<FakeMaster>> thieves;

    while (thieves.size() < numThieves)
        thieves.push_back(introduce());

    for (int round = 0; round < rounds; ++round)
        stealAtTheSameTime(thieves, numThieves * stopBoundMs);

    // Each change of owner was broadcast once. A thief that was the owner already changed nothing.
    const auto changes = countChangesUntilStopped(*witness);
    EXPECT_LE(changes, rounds * numThieves);
    EXPECT_GE(changes, rounds * (numThieves - 1));

    if (processesAreShownAsFiles())
    {
        EXPECT_LE(getChildren().size(), 1u); // the last thief's slave may just be starting
    }
}

/** The stop arrives before, while and after the slave dies. A failure may be reported before the
    reply to the stop, never after it. On a starved machine the slave can die before the monitor has
    read that it is initialised; its failure then comes first. */
TEST_F(RacesTestOwner, AStopWhileTheSlaveCrashesIsObeyedInTime)
{
    slave.play("[run]\nconnect\ninfo\nwait 120\nexit 3");

    for (int delayMs = 0; delayMs <= 225; delayMs += 25)
    {
        SCOPED_TRACE(delayMs);
        witness->send(startRequest);
        ASSERT_TRUE(witness->nextOf({slaveRunning, slaveFailed}));
        shiftMoment(delayMs);
        witness->send(stopRequest);
        expectStopped(*witness);
    }
}

/** Another master's request waits while the slave is being stopped, and that master vanishes. */
TEST_F(RacesTestOwner, AMasterThatVanishesWhileItsRequestWaitsOwnsNothingInTheEnd)
{
    slave.play("[run]\non-stop exit-after 150\nconnect\ninfo\nwait 400\nbeat 50");

    for (const auto request : {startRequest, stealRequest, startRequest, stealRequest, scanRequest})
    {
        SCOPED_TRACE(request);
        log.clear();
        const auto vanishing = introduce();
        startSlaveFor(*witness);
        witness->send(stopRequest);
        ASSERT_TRUE(log.waitForLine("stopping Quelta slave for master " + witness->getName()));
        vanishing->send(request);
        allowArrivalAtLock(); // of its reader thread
        vanishing->vanish();
        expectFreedByTicks();
        ASSERT_TRUE(log.waitForLine("disconnected from master " + vanishing->getName()));
        expectFreedByTicks();
    }
}

} // namespace
} // namespace quelta::test
