// What a signal that asks a program to quit means, given when the first of its kind came. Terminals
// and process managers signal a process and its group, so one request can arrive twice within
// microseconds; only a later one is from a user who does not want to wait.
#pragma once

#include <cstdint>

namespace quelta {

enum class QuitEffect
{
    quit,     ///< The first: end in order.
    none,     ///< The same request once more.
    endAtOnce ///< Another request: end the process without order.
};

constexpr int64_t quitRepetitionMs = 1'000;

/** The time of the first signal while there has been none. */
constexpr int64_t noQuitYet = -1;

/** Both times in milliseconds of one clock. Async-signal-safe. */
constexpr QuitEffect judgeQuitSignal(int64_t firstMs, int64_t nowMs)
{
    if (firstMs == noQuitYet)
        return QuitEffect::quit;

    return nowMs - firstMs <= quitRepetitionMs ? QuitEffect::none : QuitEffect::endAtOnce;
}

} // namespace quelta
