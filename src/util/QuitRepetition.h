// Decides what a quit signal means, given the time of the first one. Terminals and process managers
// signal both a process and its group, so one request can arrive twice within microseconds. Only a
// later signal is a new request.
#pragma once

#include <cstdint>

namespace quelta {

enum class QuitEffect
{
    quit,     ///< The first request: shut down in order.
    none,     ///< A duplicate of the first request.
    endAtOnce ///< A second request: end the process at once.
};

constexpr int64_t quitRepetitionMs = 1'000;

/** Stands for the time of the first signal before there is one. */
constexpr int64_t noQuitYet = -1;

/** Both times are in milliseconds of the same clock. Async-signal-safe. */
constexpr QuitEffect judgeQuitSignal(int64_t firstMs, int64_t nowMs)
{
    if (firstMs == noQuitYet)
        return QuitEffect::quit;

    return nowMs - firstMs <= quitRepetitionMs ? QuitEffect::none : QuitEffect::endAtOnce;
}

} // namespace quelta
