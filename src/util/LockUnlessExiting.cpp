#include "util/LockUnlessExiting.h"

#include <algorithm>

namespace quelta {

namespace {

constexpr int triesBeforePausing = 16; ///< The lock is mostly held for the time of one send.
constexpr int longestPauseMs = 32;

/** Ends early when the thread is told to stop. */
void pause(int milliseconds)
{
    if (const auto* const thread = juce::Thread::getCurrentThread())
        thread->wait(milliseconds);
    else
        juce::Thread::sleep(milliseconds);
}

} // namespace

LockUnlessExiting::LockUnlessExiting(const juce::CriticalSection& lockToTake, int pollMs)
    : lock(lockToTake)
{
    for (int attempt = 0, pauseMs = 1; !(locked = lock.tryEnter()); ++attempt)
    {
        if (juce::Thread::currentThreadShouldExit())
            return;

        if (pollMs > 0)
        {
            pause(pollMs);
        }
        else if (attempt < triesBeforePausing)
        {
            juce::Thread::yield();
        }
        else
        {
            pause(pauseMs);
            pauseMs = std::min(2 * pauseMs, longestPauseMs);
        }
    }
}

LockUnlessExiting::~LockUnlessExiting()
{
    if (locked)
        lock.exit();
}

} // namespace quelta
