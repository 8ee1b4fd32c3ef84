// The wall clock of the log's time stamps.
#pragma once

#include <juce_core/juce_core.h>

namespace quelta {

/** Returns milliseconds since the epoch, UTC. */
using LogClock = juce::int64 (*)();

/** The current time. Any thread. */
juce::int64 getLogTime();

/** Replaces the clock in a test; null restores the system's. Only while no other thread logs. */
void setLogClock(LogClock replacement);

} // namespace quelta
