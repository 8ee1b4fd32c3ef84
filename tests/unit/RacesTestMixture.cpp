// Several masters ask for everything at random while connections break and slaves crash.
#include <atomic>
#include <random>
#include <thread>

#include "support/RaceTest.h"

namespace quelta::test {
namespace {

constexpr uint32_t durationMs = 2'000;

class RacesTestMixture : public RaceTest
{
protected:
    /** What one master does, on a thread of its own. */
    static void askForAnything(FakeMaster& master, unsigned seed, const std::atomic<bool>& enough)
    {
        std::mt19937 random(seed);

        while (!enough)
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

            juce::Thread::sleep(static_cast<int>(random() % 60));
        }
    }
};

TEST_F(RacesTestMixture, InTheEndEveryRequestIsServedAndTheSlaveIsFree)
{
    slave.play("[run]\nconnect\nauthenticating\ninfo\nwait 400\nbeat 50 for 200\ncrash");
    const auto seed = std::random_device{}();
    SCOPED_TRACE(seed);
    startRaceDaemon();
    std::vector<std::unique_ptr<FakeMaster>> masters;
    std::vector<std::thread> threads;
    std::atomic<bool> enough{false};

    while (masters.size() < 4)
        masters.push_back(introduce());

    for (unsigned i = 0; i < masters.size(); ++i)
        threads.emplace_back([&, i] { askForAnything(*masters[i], seed + i, enough); });

    for (const auto start = juce::Time::getMillisecondCounter();
         juce::Time::getMillisecondCounter() - start < durationMs; juce::Thread::sleep(20))
        tick();

    enough = true;

    for (auto& thread : threads)
        thread.join();

    for (auto& master : masters)
    {
        // All of them go on listening, so none has been forgotten.
        for (; !master->isConnected(); juce::Thread::sleep(10))
            tick();

        master->send(stopRequest);
        askForOwner(*master); // so the stop has been served
    }

    for (auto& master : masters)
        EXPECT_EQ(formatAddress(askForOwner(*master)), "0.0.0.0:0");
}

} // namespace
} // namespace quelta::test
