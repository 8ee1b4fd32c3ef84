// What the watchdog makes of the slave, as a pure function of what it has just seen.
//
//   status                 silent for more than    the slave
//   STATUS_STARTING        10,000 ms               hangs in start-up
//   STATUS_AUTHENTICATING  any time                -
//   STATUS_INITIALIZED     4,000 ms                hangs after initialisation
//   STATUS_RUNNING         10,000 ms               has lost its heart beat
//
// A process that has ended needs no stopping; one that hangs, or that somebody wants stopped, does.
#pragma once

#include <cstdint>

#include "messages/SlaveDaemonMessage.h"

namespace quelta {

/** All in milliseconds. */
struct SlaveTimeLimits
{
    uint32_t startup = 10'000;            ///< Silence in STATUS_STARTING.
    uint32_t afterInitialisation = 4'000; ///< Silence in STATUS_INITIALIZED.
    uint32_t heartBeat = 10'000;          ///< Silence in STATUS_RUNNING.
    uint32_t gracefulStop = 12'000;       ///< From the stop message to the use of force.
};

/** What one pass of the watch has seen. */
struct SlaveObservation
{
    SlaveStatus status = STATUS_STARTING;
    uint32_t millisecondsSinceLastMessage = 0;
    bool running = true;      ///< The process has not ended.
    bool askedToStop = false; ///< Somebody wants the slave stopped.
    bool infoRequest = false; ///< The slave was started only to report its information.
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
    stop,    ///< It runs and has to end.
    ended,   ///< It has reported its information and gone, as expected.
    crashed, ///< It has gone by itself.
};

struct SlaveVerdict
{
    SlaveHang hang = SlaveHang::none;
    bool initialised = false; ///< It says that it is initialised, and in time.
    SlaveNextStep nextStep = SlaveNextStep::keepWatching;
};

SlaveVerdict judgeSlave(const SlaveObservation& seen, const SlaveTimeLimits& limits);

} // namespace quelta
