// Decides which message goes to the daemon, and when. Pure: the caller passes the time. Not
// thread-safe.
//
//   state        message         when
//   starting     AUTHENTICATING  at once, then every second
//   announced    SLAVE_INFO      at once
//   afterwards   SLAVE_STATUS    every second, while the program is alive
//
// The daemon polls every 100 ms and tells the owner that the slave runs only if a poll sees
// SLAVE_INFO as the latest message. The whole second before the first SLAVE_STATUS leaves time for
// that on a busy machine, and is far below the 4 s after which the daemon gives the slave up.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "messages/SlaveDaemonMessage.h"

namespace quelta::execslave {

class MessageSchedule
{
public:
    static constexpr std::chrono::milliseconds interval{1000};

    /** The program is ready: SLAVE_INFO comes next. */
    void announce(uint32_t version, uint32_t numGpus);

    /** Whether heartbeats go out. Initially true. AUTHENTICATING and SLAVE_INFO always do. */
    void setAlive(bool isAlive) { alive = isAlive; }
    bool isAlive() const { return alive; }

    /** Returns the message that is due, if any, and counts it as sent. */
    std::optional<SlaveDaemonMessage> take(std::chrono::milliseconds now);

    /** How long to wait for the next message if nothing changes. Empty: until something does. */
    std::optional<std::chrono::milliseconds> timeToNext(std::chrono::milliseconds now) const;

    bool hasAnnounced() const { return stage == Stage::announced; }

private:
    enum class Stage
    {
        starting,
        announcing,
        announced
    };

    Stage stage = Stage::starting;
    SlaveDaemonMessage info;
    bool alive = true;
    std::optional<std::chrono::milliseconds> lastSent;
};

} // namespace quelta::execslave
