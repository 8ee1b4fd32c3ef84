// The operator's request to stop, which arrives as a signal. Process managers signal a process and
// then its group, so one request may arrive twice within microseconds.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>

namespace quelta {

/** Decides what a signal means. Thread-safe and async-signal-safe. */
class StopRequest
{
public:
    /** A signal that arrives within this time after the first is a repetition of it. */
    static constexpr std::chrono::milliseconds repetitionLimit{1000};

    /** Handles a signal that arrived at `now`, which is not negative. Returns false if the program
        must end at once. */
    bool receive(std::chrono::milliseconds now)
    {
        auto first = none;
        return firstAt.compare_exchange_strong(first, now.count()) ||
               now.count() - first < repetitionLimit.count();
    }

    bool isPending() const { return firstAt != none; }

private:
    static constexpr int64_t none = std::numeric_limits<int64_t>::min();

    std::atomic<int64_t> firstAt{none};
    static_assert(std::atomic<int64_t>::is_always_lock_free, "signal handlers use it");
};

} // namespace quelta
