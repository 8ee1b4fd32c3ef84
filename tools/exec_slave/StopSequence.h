// The stop ladder: the stop command, then the signal, then force. Pure: the caller passes the time.
//
//   step        when
//   runCommand  at once, if a command is configured
//   signal      at once without a command or if it fails; else after half of the grace period, so
//               that a command that only asks the program to end gives it time to do so
//   kill        after the grace period, which begins with the stop
//
// Each step is returned once. No step is needed once the program has ended.
#pragma once

#include <chrono>
#include <optional>

namespace quelta::execslave {

enum class StopStep
{
    none,
    runCommand,
    signal,
    kill
};

class StopSequence
{
public:
    StopSequence(bool hasStopCommand, std::chrono::milliseconds gracePeriod);

    /** Begins the stop. A repetition changes nothing. */
    void begin(std::chrono::milliseconds now);

    bool hasBegun() const { return begun.has_value(); }

    /** Shortens the grace period, for instance because Windows is about to end this process. */
    void limitGrace(std::chrono::milliseconds limit);

    std::chrono::milliseconds getGrace() const { return grace; }

    /** `commandFailed`: whether the stop command has ended without success. */
    StopStep next(std::chrono::milliseconds now, bool commandFailed);

    /** How long until the next step, if nothing else happens. Empty: there is none. */
    std::optional<std::chrono::milliseconds> timeToNext(std::chrono::milliseconds now) const;

private:
    const bool hasCommand;
    std::chrono::milliseconds grace;
    std::optional<std::chrono::milliseconds> begun;
    StopStep done = StopStep::none; ///< The last step returned.
};

} // namespace quelta::execslave
