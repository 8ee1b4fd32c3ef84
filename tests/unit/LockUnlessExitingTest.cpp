#include "util/LockUnlessExiting.h"

#include <atomic>
#include <thread>
#include <vector>

#include "support/ThreadedTest.h"

namespace quelta::test {
namespace {

enum class Outcome
{
    unknown,
    locked,
    gaveUp
};

/** A JUCE thread that takes the lock once and records the outcome. */
class TakingThread final : public juce::Thread
{
public:
    explicit TakingThread(const juce::CriticalSection& lockToTake)
        : Thread("taking"), lock(lockToTake)
    {}
    ~TakingThread() override { stopThread(-1); }

    void run() override
    {
        begun.signal();

        if (exitAtOnce)
            signalThreadShouldExit();

        const LockUnlessExiting held(lock, pollMs);
        outcome = held.isLocked() ? Outcome::locked : Outcome::gaveUp;
    }

    /** Waits until the started thread is about to take the lock; false if it does not start. */
    bool startAndWait(int limitMs)
    {
        startThread();
        return begun.wait(limitMs);
    }

    Outcome waitForOutcome()
    {
        waitForThreadToExit(-1);
        return outcome;
    }

    // Set before the thread is started.
    bool exitAtOnce = false;
    int pollMs = 0;
    juce::WaitableEvent begun;
    std::atomic<Outcome> outcome{Outcome::unknown};

private:
    const juce::CriticalSection& lock;
};

class LockUnlessExitingTest : public ThreadedTest
{
protected:
    /** Starts a thread that then waits for the lock. */
    static void start(TakingThread& thread)
    {
        ASSERT_TRUE(thread.startAndWait(static_cast<int>(hangLimitMs)));
        allowArrivalAtLock();
    }

    /** Whether another thread could take the lock now. */
    bool isFree() const
    {
        bool taken = false;
        std::thread([this, &taken] {
            taken = lock.tryEnter();

            if (taken)
                lock.exit();
        }).join();
        return taken;
    }

    const juce::CriticalSection lock;
};

TEST_F(LockUnlessExitingTest, AFreeLockIsTakenAndReleasedAgain)
{
    {
        const LockUnlessExiting held(lock);
        EXPECT_TRUE(held.isLocked());
        EXPECT_FALSE(isFree());
    }

    EXPECT_TRUE(isFree());
}

TEST_F(LockUnlessExitingTest, TheLockIsRecursive)
{
    const LockUnlessExiting first(lock);

    {
        const LockUnlessExiting second(lock);
        EXPECT_TRUE(second.isLocked());
    }

    EXPECT_FALSE(isFree());
}

TEST_F(LockUnlessExitingTest, AJuceThreadWaitsForTheLock)
{
    TakingThread thread(lock);

    {
        const juce::ScopedLock sl(lock);
        start(thread);
        EXPECT_EQ(thread.outcome, Outcome::unknown);
    }

    EXPECT_EQ(thread.waitForOutcome(), Outcome::locked);
    EXPECT_TRUE(isFree());
}

TEST_F(LockUnlessExitingTest, APollingThreadRetriesAfterItsIntervalAtTheEarliest)
{
    TakingThread thread(lock);
    thread.pollMs = 300;
    const auto taken = timeOf([this, &thread] {
        {
            const juce::ScopedLock sl(lock);
            start(thread);
        }

        EXPECT_EQ(thread.waitForOutcome(), Outcome::locked);
    });
    EXPECT_GE(taken, 290u);
}

TEST_F(LockUnlessExitingTest, AJuceThreadGivesUpOnceItIsAskedToExit)
{
    TakingThread thread(lock);
    const juce::ScopedLock sl(lock);
    start(thread);
    thread.signalThreadShouldExit();
    EXPECT_EQ(thread.waitForOutcome(), Outcome::gaveUp);
}

TEST_F(LockUnlessExitingTest, TheHolderMayJoinTheThreadThatWaitsForTheLock)
{
    TakingThread thread(lock);
    const juce::ScopedLock sl(lock);
    start(thread);

    // The request to exit ends the pause of the waiting thread, which is 32 ms at most.
    EXPECT_LT(timeOf([&thread] { EXPECT_TRUE(thread.stopThread(10'000)); }), 1'000u);
    EXPECT_EQ(thread.outcome, Outcome::gaveUp);
}

TEST_F(LockUnlessExitingTest, APollingThreadGivesUpBeforeItsIntervalIsOver)
{
    TakingThread thread(lock);
    thread.pollMs = 60'000;
    const juce::ScopedLock sl(lock);
    start(thread);
    thread.stopThread(-1);
    EXPECT_EQ(thread.outcome, Outcome::gaveUp);
}

TEST_F(LockUnlessExitingTest, GivingUpDoesNotReleaseTheHoldersLock)
{
    TakingThread thread(lock);
    const juce::ScopedLock sl(lock);
    start(thread);
    thread.stopThread(-1);
    EXPECT_FALSE(isFree());
}

TEST_F(LockUnlessExitingTest, AFreeLockIsTakenEvenByAThreadThatIsExiting)
{
    TakingThread thread(lock);
    thread.exitAtOnce = true;
    thread.startThread();
    EXPECT_EQ(thread.waitForOutcome(), Outcome::locked);
}

TEST_F(LockUnlessExitingTest, AThreadUnknownToJuceWaitsWithoutLimit)
{
    std::atomic<bool> locked{false};
    std::thread thread;

    {
        const juce::ScopedLock sl(lock);
        thread = std::thread([this, &locked] { locked = LockUnlessExiting(lock).isLocked(); });
        allowArrivalAtLock();
        EXPECT_FALSE(locked);
    }

    thread.join();
    EXPECT_TRUE(locked);
}

TEST_F(LockUnlessExitingTest, ManyThreadsExcludeOneAnother)
{
    constexpr int rounds = 2'000;
    int counter = 0; // guarded by the lock alone
    std::vector<std::thread> threads;

    for (int i = 0; i < 4; ++i)
        threads.emplace_back([this, &counter] {
            for (int round = 0; round < rounds; ++round)
            {
                const LockUnlessExiting held(lock);
                ++counter;
            }
        });

    for (auto& thread : threads)
        thread.join();

    EXPECT_EQ(counter, 4 * rounds);
}

} // namespace
} // namespace quelta::test
