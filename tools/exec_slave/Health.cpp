#include "exec_slave/Health.h"

#include "exec_slave/Duration.h"

namespace quelta::execslave {

std::string findIllness(const AliveCondition& condition, const HealthObservation& seen)
{
    if (!seen.tcpFailure.empty())
        return seen.tcpFailure;

    if (!seen.commandFailure.empty())
        return seen.commandFailure;

    if (condition.silence && seen.silence >= *condition.silence)
        return "no line of output for " + describeSeconds(*condition.silence);

    return {};
}

HealthReport::Kind HealthReport::classify(const AliveCondition& condition,
                                          const HealthObservation& seen)
{
    if (!seen.tcpFailure.empty())
        return Kind::tcp;

    if (!seen.commandFailure.empty())
        return Kind::command;

    return findIllness(condition, seen).empty() ? Kind::alive : Kind::silence;
}

std::string HealthReport::update(const AliveCondition& condition, const HealthObservation& seen)
{
    const auto kind = classify(condition, seen);

    if (kind == reported)
        return {};

    reported = kind;

    if (kind == Kind::alive)
        return "the program is alive again, heartbeats go on";

    return "no heartbeats while the program is not alive: " + findIllness(condition, seen);
}

} // namespace quelta::execslave
