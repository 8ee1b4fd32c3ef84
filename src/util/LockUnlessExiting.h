// A lock taken by a thread that somebody may be waiting for while holding that very lock.
//
// Whoever holds a lock may wait for a framework thread to end (to close a connection, to stop the
// slave). Such a thread never blocks on the lock: it tries, and gives up as soon as it has been
// asked to exit.
#pragma once

#include <juce_core/juce_core.h>

namespace quelta {

class LockUnlessExiting
{
public:
    /** Returns with the lock taken, or without it once the calling framework thread has been asked
        to exit. A thread that is none of the framework's waits as long as it takes. It tries every
        `pollMs` ms, or, with 0, at once and then ever more seldom. */
    explicit LockUnlessExiting(const juce::CriticalSection& lockToTake, int pollMs = 0);
    ~LockUnlessExiting();

    LockUnlessExiting(const LockUnlessExiting&) = delete;
    LockUnlessExiting& operator=(const LockUnlessExiting&) = delete;

    bool isLocked() const { return locked; }

private:
    const juce::CriticalSection& lock;
    bool locked = false;
};

} // namespace quelta
