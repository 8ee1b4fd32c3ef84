// A clock that stands still while the machine sleeps. The slave sleeps with its daemon, so the time
// asleep is no silence of the slave's.
#pragma once

#include <cstdint>

namespace quelta::platform {

/** Milliseconds from some moment before this process began, without those that the machine slept.
    Any thread, signal handlers included. */
int64_t getAwakeMilliseconds();

using AwakeClock = int64_t (*)();

/** Lets a test say what time it is; null brings the system's clock back. */
void setAwakeClock(AwakeClock replacement);

} // namespace quelta::platform
