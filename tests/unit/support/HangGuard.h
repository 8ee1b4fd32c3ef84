// Aborts the test program with a message when a test hangs, since nothing else ends a deadlock.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace quelta::test {

class HangGuard
{
public:
    /** Far longer than any test takes. */
    static constexpr std::chrono::seconds limit{120};

    HangGuard() : thread([this] { watch(); }) {}

    ~HangGuard()
    {
        {
            const std::lock_guard guard(lock);
            done = true;
        }

        changed.notify_one();
        thread.join();
    }

    HangGuard(const HangGuard&) = delete;
    HangGuard& operator=(const HangGuard&) = delete;

private:
    void watch()
    {
        std::unique_lock guard(lock);

        if (changed.wait_for(guard, limit, [this] { return done; }))
            return;

        std::fprintf(stderr, "a test hangs, ending the test program\n");
        std::abort();
    }

    std::mutex lock; ///< Guards `done`.
    std::condition_variable changed;
    bool done = false;
    std::thread thread;
};

} // namespace quelta::test
