#include "platform/AwakeClock.h"

#include <atomic>
#include <ctime>

namespace quelta::platform {

namespace {

/** Unlike CLOCK_BOOTTIME, this clock stops while the machine sleeps. */
int64_t readMonotonicClock()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000 + now.tv_nsec / 1'000'000;
}

std::atomic<AwakeClock> activeClock{readMonotonicClock};
static_assert(std::atomic<AwakeClock>::is_always_lock_free);

} // namespace

int64_t getAwakeMilliseconds()
{
    return activeClock.load()();
}

void setAwakeClock(AwakeClock replacement)
{
    activeClock = replacement != nullptr ? replacement : readMonotonicClock;
}

} // namespace quelta::platform
