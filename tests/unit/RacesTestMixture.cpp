// Several masters send random requests while connections break and slaves crash.
#include <atomic>
#include <random>
#include <thread>

#include "support/RaceTest.h"

namespace quelta::test {
namespace {

constexpr int ticks = 100;
constexpr int tickIntervalMs = 20;

class RacesTestMixture : public RaceTest
{
protected:
    /** Sends random requests; runs on a thread of its own for each master. */
    static void sendRequests(FakeMaster& master, unsigned seed, const std::atomic<bool>& stopping)
    {
        std::mt19937 random(seed);

        while (!stopping)
        {
            switch (random() % 8)
            {
                case 0:
                case 1:
                    master.send(startRequest);
                    break;
                case 2:
                case 3:
                    master.send(stopRequest);
                    break;
                case 4:
                    master.send(stealRequest);
                    break;
                case 5:
                    master.hangUp();
                    break;
                default:
                    master.send(scanRequest);
                    break;
            }

            shiftMoment(static_cast<int>(random() % 60));
        }
    }
};

TEST_F(RacesTestMixture, EveryRequestIsServedAndTheSlaveIsFreeInTheEnd)
{
    slave.play("[run]\nconnect\nauthenticating\ninfo\nwait 400\nbeat 50 for 200\ncrash");
    const auto seed = std::random_device{}();
    SCOPED_TRACE(seed);
    startRaceDaemon();
    std::vector<std::unique_ptr<FakeMaster>> masters;
    std::vector<std::thread> threads;
    std::atomic<bool> stopping{false};

    while (masters.size() < 4)
        masters.push_back(introduce());

    for (unsigned i = 0; i < masters.size(); ++i)
        threads.emplace_back([&, i] { sendRequests(*masters[i], seed + i, stopping); });

    for (int i = 0; i < ticks; ++i)
    {
        tick();
        shiftMoment(tickIntervalMs);
    }

    stopping = true;

    for (auto& thread : threads)
        thread.join();

    for (auto& master : masters)
    {
        // All masters keep listening, so none has been unregistered.
        ASSERT_TRUE(pollUntil([this, &master] {
            tick();
            return master->isConnected();
        }));
        master->send(stopRequest);
        askForOwner(*master); // waits until the stop has been served
    }

    for (auto& master : masters)
        EXPECT_EQ(formatAddress(askForOwner(*master)), "0.0.0.0:0");
}

} // namespace
} // namespace quelta::test
