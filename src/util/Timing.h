// The daemon's intervals and timeouts, in one place so that a test can pin them: masters, slaves
// and administrators rely on them. The slave's time limits are in SlaveTimeLimits.
#pragma once

namespace quelta::timing {

constexpr int tickMs = 500;            ///< From the end of one tick to the start of the next.
constexpr int connectTimeoutMs = 1000; ///< One attempt to connect to a master.
constexpr int discoveryPollMs = 100;   ///< How often discovery checks whether to exit.
constexpr int slavePollMs = 100;       ///< How often the watchdog polls the slave.
constexpr int informationPollMs = 100; ///< How often start-up polls the information run.
constexpr int failureNotificationPollMs = 100; ///< How often a failure notification tries the lock.

} // namespace quelta::timing
