// A recursive mutex that is cheap to hand from thread to thread when it is held for very short times.
//
// On Windows that is a critical section, which the framework's class is made of. On Linux the framework's
// class inherits priorities, and for that has every thread that finds it taken put to sleep and woken in
// turn; a plain mutex can be taken again at once.
#pragma once

#include <memory>

namespace quelta::platform {

/** Any thread; usable with std::scoped_lock. */
class RecursiveMutex
{
public:
    RecursiveMutex();
    ~RecursiveMutex();

    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    void lock();
    bool try_lock();
    void unlock();

private:
    struct System;
    const std::unique_ptr<System> system;
};

} // namespace quelta::platform
