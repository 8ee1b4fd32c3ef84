// The daemon's intervals and time-outs, in one place so that a test can pin them: masters, slaves
// and administrators rely on each. The slave's own time limits are in SlaveTimeLimits.
#pragma once

namespace quelta::timing {

constexpr int tickMs = 500;            ///< Between the ends of one tick and the start of the next.
constexpr int connectTimeoutMs = 1000; ///< One attempt to connect to a master.
constexpr int discoveryPollMs = 100;   ///< How soon discovery notices that it has to end.
constexpr int slavePollMs = 100;       ///< The watchdog's look at the slave.
constexpr int informationPollMs = 100; ///< Start-up's look at the information run.
constexpr int failureNotificationPollMs = 100; ///< Tries for the lock before a failure is reported.

} // namespace quelta::timing
