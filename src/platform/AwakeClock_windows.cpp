#include "platform/AwakeClock.h"

#include <windows.h>

#include <atomic>

namespace quelta::platform {

namespace {

constexpr ULONGLONG unitsPerMillisecond = 10'000; ///< Windows counts units of 100 ns.

/** The only clock of Windows that stops while the machine sleeps. */
int64_t readUnbiasedTime()
{
    ULONGLONG now = 0;
    QueryUnbiasedInterruptTime(&now);
    return static_cast<int64_t>(now / unitsPerMillisecond);
}

std::atomic<AwakeClock> activeClock{readUnbiasedTime};

} // namespace

int64_t getAwakeMilliseconds()
{
    return activeClock.load()();
}

void setAwakeClock(AwakeClock replacement)
{
    activeClock = replacement != nullptr ? replacement : readUnbiasedTime;
}

} // namespace quelta::platform
