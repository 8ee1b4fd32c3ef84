#include "exec_slave/SessionState.h"

#include <algorithm>

#include "exec_slave/Duration.h"
#include "exec_slave/ExitStatus.h"
#include "exec_slave/Readiness.h"

namespace quelta::execslave {

namespace {

using std::chrono::milliseconds;

/** Windows ends a process 5 s after its console or session is closed. */
constexpr milliseconds hurriedGrace{3500};

const char* describe(StopReason reason)
{
    switch (reason)
    {
        case StopReason::daemonAsked:
            return "the daemon has asked for it";
        case StopReason::daemonLost:
            return "the connection to the daemon is lost";
        case StopReason::signal:
            return "a signal has asked for it";
        case StopReason::systemEnds:
            return "the console or the session is closed";
    }

    return "";
}

} // namespace

SessionState::SessionState(const Configuration& settings, milliseconds started)
    : readyCondition(settings.ready),
      aliveCondition(settings.alive),
      start(started),
      stop(!settings.stop.command.empty(), settings.stop.grace)
{}

SessionOrders SessionState::advance(const SessionObservation& seen)
{
    SessionOrders orders;

    if (failOnErrorLine(seen, orders))
        return orders;

    if (seen.stop)
        beginStop(seen, orders);

    if (phase == Phase::starting)
        judgeStart(seen, orders);
    else if (phase == Phase::running)
        judgeHealth(seen, orders);

    if (phase == Phase::stopping)
        orders.step = stop.next(seen.now, seen.stopCommandFailed);

    if (phase == Phase::stopping && orders.step == StopStep::kill)
        orders.messages.push_back("the program has not ended within " +
                                  describeSeconds(stop.getGrace()) + ", killing it");

    orders.alive = alive;
    orders.wait = timeToNext(seen);
    return orders;
}

SessionEnd SessionState::conclude(const SessionObservation& seen, int programStatus,
                                  const std::string& text)
{
    // A program that prints an error and ends at once with 0 has failed, too.
    SessionOrders orders;
    failOnErrorLine(seen, orders);

    SessionEnd end;
    end.status = phase == Phase::failed ? failure : programStatus;
    end.messages = std::move(orders.messages);
    end.messages.push_back("the program has ended: " + text);
    return end;
}

void SessionState::fail(int status, const std::string& message, SessionOrders& orders)
{
    phase = Phase::failed;
    failure = status;
    orders.step = StopStep::kill;
    orders.messages.push_back(message);
}

/** A program that is being stopped may report the interruption as an error. */
bool SessionState::failOnErrorLine(const SessionObservation& seen, SessionOrders& orders)
{
    const bool isOpen = phase == Phase::starting || phase == Phase::running;

    if (seen.errorPattern.empty() || !isOpen)
        return false;

    fail(exitErrorLine,
         "failed, since a line of output matches '" + seen.errorPattern + "': " + seen.errorLine,
         orders);
    return true;
}

void SessionState::beginStop(const SessionObservation& seen, SessionOrders& orders)
{
    if (seen.stop == StopReason::systemEnds)
        stop.limitGrace(hurriedGrace);

    if (phase != Phase::starting && phase != Phase::running)
        return;

    phase = Phase::stopping;
    stop.begin(seen.now);
    orders.messages.push_back(std::string("stopping the program: ") + describe(*seen.stop));
}

void SessionState::judgeStart(const SessionObservation& seen, SessionOrders& orders)
{
    switch (judgeReadiness(readyCondition, seen.now - start, seen.readyConditionMet))
    {
        case Readiness::waiting:
            break;

        case Readiness::ready:
            phase = Phase::running;
            readySince = seen.now;
            orders.announce = true;
            orders.messages.emplace_back("the program is ready");
            break;

        case Readiness::timedOut:
            fail(exitNotReady, describeNotReady(readyCondition, seen.readyFailure), orders);
            break;
    }
}

void SessionState::judgeHealth(const SessionObservation& seen, SessionOrders& orders)
{
    const auto silence = seen.now - std::max(seen.lastLine, readySince);
    const HealthObservation observation{seen.tcpFailure, seen.commandFailure, silence};
    alive = findIllness(aliveCondition, observation).empty();

    if (auto message = health.update(aliveCondition, observation); !message.empty())
        orders.messages.push_back(std::move(message));
}

std::optional<milliseconds> SessionState::timeToNext(const SessionObservation& seen) const
{
    switch (phase)
    {
        case Phase::starting:
            return timeToReadinessChange(readyCondition, seen.now - start);

        case Phase::running:
            if (alive && aliveCondition.silence)
                return std::max(seen.lastLine, readySince) + *aliveCondition.silence - seen.now;
            break;

        case Phase::stopping:
            return stop.timeToNext(seen.now);

        case Phase::failed:
            break;
    }

    return std::nullopt;
}

} // namespace quelta::execslave
