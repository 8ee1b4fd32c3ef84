#include "platform/AwakeClock.h"

#include <atomic>
#include <ctime>

namespace quelta::platform {

namespace {

/** CLOCK_BOOTTIME is the clock that goes on while the machine sleeps. */
int64_t readMonotonicClock()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000 + now.tv_nsec / 1'000'000;
}

std::atomic<AwakeClock> awakeClock{readMonotonicClock};
static_assert(std::atomic<AwakeClock>::is_always_lock_free);

} // namespace

int64_t getAwakeMilliseconds()
{
    return awakeClock.load()();
}

void setAwakeClock(AwakeClock replacement)
{
    awakeClock = replacement != nullptr ? replacement : readMonotonicClock;
}

} // namespace quelta::platform
