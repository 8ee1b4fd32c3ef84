// A clock that stops while the machine sleeps. The slave sleeps as well, so this time must not
// count as silence of the slave.
#pragma once

#include <cstdint>

namespace quelta::platform {

/** Returns milliseconds since some moment before this process started, time asleep excluded. Any
    thread; async-signal-safe. */
int64_t getAwakeMilliseconds();

using AwakeClock = int64_t (*)();

/** Replaces the clock in a test; null restores the system's. */
void setAwakeClock(AwakeClock replacement);

} // namespace quelta::platform
