// Acquires a lock without ever blocking thread shutdown.
//
// The owner of a lock may hold it while joining a JUCE thread, to close a connection or to stop the
// slave. Such a thread must not block on the lock. It polls instead, and gives up as soon as it has
// been asked to exit.
#pragma once

#include <juce_core/juce_core.h>

namespace quelta {

class LockUnlessExiting
{
public:
    /** Returns with the lock held, or without it if the calling JUCE thread has been asked to exit.
        A thread that JUCE did not start waits until it has the lock. Polls every `pollMs` ms, or
        with exponential back-off if that is 0. */
    explicit LockUnlessExiting(const juce::CriticalSection& lockToAcquire, int pollMs = 0);
    ~LockUnlessExiting();

    LockUnlessExiting(const LockUnlessExiting&) = delete;
    LockUnlessExiting& operator=(const LockUnlessExiting&) = delete;

    bool isLocked() const { return locked; }

private:
    const juce::CriticalSection& lock;
    bool locked = false;
};

} // namespace quelta
