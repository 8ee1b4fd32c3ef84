#include "exec_slave/StopSequence.h"

#include <algorithm>

namespace quelta::execslave {

StopSequence::StopSequence(bool hasStopCommand, std::chrono::milliseconds gracePeriod)
    : hasCommand(hasStopCommand), grace(gracePeriod)
{}

void StopSequence::begin(std::chrono::milliseconds now)
{
    if (!begun)
        begun = now;
}

void StopSequence::limitGrace(std::chrono::milliseconds limit)
{
    grace = std::min(grace, limit);
}

StopStep StopSequence::next(std::chrono::milliseconds now, bool commandFailed)
{
    if (!begun || done == StopStep::kill)
        return StopStep::none;

    if (now - *begun >= grace)
        return done = StopStep::kill;

    if (done == StopStep::none)
        return done = hasCommand ? StopStep::runCommand : StopStep::signal;

    if (done == StopStep::runCommand && (commandFailed || now - *begun >= grace / 2))
        return done = StopStep::signal;

    return StopStep::none;
}

std::optional<std::chrono::milliseconds> StopSequence::timeToNext(
    std::chrono::milliseconds now) const
{
    if (!begun || done == StopStep::kill)
        return std::nullopt;

    auto due = *begun;

    if (done != StopStep::none)
        due += done == StopStep::runCommand ? grace / 2 : grace;

    return std::max(due - now, std::chrono::milliseconds::zero());
}

} // namespace quelta::execslave
