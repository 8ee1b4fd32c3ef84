#include "platform/AwakeClock.h"

#include <windows.h>

#include <atomic>

namespace quelta::platform {

namespace {

constexpr ULONGLONG unitsPerMillisecond = 10'000; ///< The system counts units of 100 ns.

/** Every other clock of the system goes on while the machine sleeps. */
int64_t readUnbiasedTime()
{
    ULONGLONG now = 0;
    QueryUnbiasedInterruptTime(&now);
    return static_cast<int64_t>(now / unitsPerMillisecond);
}

std::atomic<AwakeClock> awakeClock{readUnbiasedTime};

} // namespace

int64_t getAwakeMilliseconds()
{
    return awakeClock.load()();
}

void setAwakeClock(AwakeClock replacement)
{
    awakeClock = replacement != nullptr ? replacement : readUnbiasedTime;
}

} // namespace quelta::platform
