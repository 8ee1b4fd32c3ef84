// The operator's wish to end, as signals bring it. Process managers signal a process and then its
// group, so one wish may arrive twice within microseconds.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>

namespace quelta {

/** Decides what a signal means. Any thread and any signal handler may call it. */
class StopRequest
{
public:
    /** A signal that comes sooner after the first is a repetition of it. */
    static constexpr std::chrono::milliseconds repetitionLimit{1000};

    /** A signal has come at this time, which is never negative. Returns false if the program is to end at
     * once. */
    bool receive(std::chrono::milliseconds now)
    {
        auto first = none;
        return firstAt.compare_exchange_strong(first, now.count()) ||
               now.count() - first < repetitionLimit.count();
    }

    bool hasCome() const { return firstAt != none; }

private:
    static constexpr int64_t none = std::numeric_limits<int64_t>::min();

    std::atomic<int64_t> firstAt{none};
    static_assert(std::atomic<int64_t>::is_always_lock_free, "signal handlers use it");
};

} // namespace quelta
