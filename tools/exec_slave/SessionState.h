// The state of a run, from the start of the program to its end: what to do when. Pure: it is given
// what has been seen and the time. Not thread-safe.
//
//   phase     event                      next phase  orders
//   starting  ready                      running     announce
//   starting  not ready in time          failed      kill
//   any but stopping, failed: error line failed      kill
//   starting, running: asked to stop     stopping    the steps of StopSequence
//   running   alive checks fail or hold  running     no heartbeats, or heartbeats again
//
// The program's end ends the run in every phase.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "exec_slave/Configuration.h"
#include "exec_slave/Health.h"
#include "exec_slave/StopSequence.h"

namespace quelta::execslave {

enum class StopReason
{
    daemonAsked,
    daemonLost,
    signal,
    systemEnds ///< Windows is about to end this process: the console or the session is closed.
};

/** What has been seen so far. Everything but `now` and `lastLine` stays set once it is. */
struct SessionObservation
{
    std::chrono::milliseconds now{0};
    std::chrono::milliseconds lastLine{0}; ///< When the latest line of output came.
    bool readyConditionMet = false;
    std::string readyFailure; ///< Why the latest check of readiness has failed.
    std::string tcpFailure;   ///< Why the latest alive check has failed; empty after a success.
    std::string commandFailure;
    std::string errorLine;    ///< The first line that matched one of the errors.
    std::string errorPattern; ///< The expression that it matched.
    std::optional<StopReason> stop;
    bool stopCommandFailed = false;
};

struct SessionOrders
{
    bool announce = false; ///< The program is ready: send SLAVE_INFO, begin the alive checks.
    bool alive = true;     ///< Whether heartbeats go out.
    StopStep step = StopStep::none;
    std::vector<std::string> messages;
    std::optional<std::chrono::milliseconds> wait; ///< The longest time until the next advance().
};

/** How the program has ended. */
struct SessionEnd
{
    int status = 0;
    std::vector<std::string> messages;
};

class SessionState
{
public:
    /** `started` is when the program was started. */
    SessionState(const Configuration& settings, std::chrono::milliseconds started);

    /** Decides while the program runs. */
    SessionOrders advance(const SessionObservation& seen);

    /** Decides after the end of the program and of its output. `text` describes the end. */
    SessionEnd conclude(const SessionObservation& seen, int programStatus, const std::string& text);

private:
    enum class Phase
    {
        starting,
        running,
        stopping,
        failed
    };

    void fail(int status, const std::string& message, SessionOrders& orders);
    bool failOnErrorLine(const SessionObservation& seen, SessionOrders& orders);
    void beginStop(const SessionObservation& seen, SessionOrders& orders);
    void judgeStart(const SessionObservation& seen, SessionOrders& orders);
    void judgeHealth(const SessionObservation& seen, SessionOrders& orders);
    std::optional<std::chrono::milliseconds> timeToNext(const SessionObservation& seen) const;

    const ReadyCondition readyCondition;
    const AliveCondition aliveCondition;
    const std::chrono::milliseconds start;
    Phase phase = Phase::starting;
    std::chrono::milliseconds readySince{0};
    bool alive = true;
    HealthReport health;
    StopSequence stop;
    int failure = 0; ///< The exit status in Phase::failed.
};

} // namespace quelta::execslave
