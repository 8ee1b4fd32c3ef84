// The port of the latest slave monitor that found one, so that a relaunched slave is normally
// served on the same port.
#pragma once

#include <atomic>
#include <cstdint>

namespace quelta {

/** 0 before the first monitor. The application owns the daemon's only one and passes it to every
    launch of a slave. Atomic because the threads of two launches can overlap. */
using MonitorPort = std::atomic<uint16_t>;

} // namespace quelta
