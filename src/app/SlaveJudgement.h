// The watchdog's decision about the slave: a pure function of one observation.
//
//   status                 limit of silence  beyond the limit, the slave
//   STATUS_STARTING        10,000 ms         hangs in start-up
//   STATUS_AUTHENTICATING  none              -
//   STATUS_INITIALIZED     4,000 ms          hangs after initialisation
//   STATUS_RUNNING         10,000 ms         has lost its heartbeat
//
// A running slave is stopped if it hangs or if the owner has requested it. A slave that has exited
// needs no stop.
#pragma once

#include <cstdint>

#include "messages/SlaveDaemonMessage.h"

namespace quelta {

/** In milliseconds. */
struct SlaveTimeLimits
{
    uint32_t startup = 10'000;            ///< Silence in STATUS_STARTING.
    uint32_t afterInitialisation = 4'000; ///< Silence in STATUS_INITIALIZED.
    uint32_t heartBeat = 10'000;          ///< Silence in STATUS_RUNNING.
    uint32_t gracefulStop = 12'000;       ///< From the stop message to the forced kill.
};

/** What one poll of the watchdog has seen. */
struct SlaveObservation
{
    SlaveStatus status = STATUS_STARTING;
    uint32_t millisecondsSinceLastMessage = 0;
    bool running = true;      ///< The process has not exited.
    bool askedToStop = false; ///< The owner has requested a stop.
    bool infoRequest = false; ///< The slave was launched for the information run.
};

enum class SlaveHang
{
    none,
    duringStartup,
    afterInitialisation,
    heartBeatStopped
};

enum class SlaveNextStep
{
    keepWatching,
    stop,    ///< It still runs and must be stopped.
    ended,   ///< It has exited after an information run, as expected.
    crashed, ///< It has exited unexpectedly.
};

struct SlaveVerdict
{
    SlaveHang hang = SlaveHang::none;
    bool initialised = false; ///< In STATUS_INITIALIZED, and not hanging.
    SlaveNextStep nextStep = SlaveNextStep::keepWatching;
};

SlaveVerdict judgeSlave(const SlaveObservation& seen, const SlaveTimeLimits& limits);

} // namespace quelta
