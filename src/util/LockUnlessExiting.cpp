#include "util/LockUnlessExiting.h"

#include <algorithm>

namespace quelta {

namespace {

constexpr int triesBeforePausing = 16; ///< The lock is mostly held for one send only.
constexpr int maxPauseMs = 32;

/** Returns early when the thread is asked to exit. */
void pause(int milliseconds)
{
    if (const auto* const thread = juce::Thread::getCurrentThread())
        thread->wait(milliseconds);
    else
        juce::Thread::sleep(milliseconds);
}

} // namespace

LockUnlessExiting::LockUnlessExiting(const juce::CriticalSection& lockToAcquire, int pollMs)
    : lock(lockToAcquire)
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
            pauseMs = std::min(2 * pauseMs, maxPauseMs);
        }
    }
}

LockUnlessExiting::~LockUnlessExiting()
{
    if (locked)
        lock.exit();
}

} // namespace quelta
