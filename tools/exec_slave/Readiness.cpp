#include "exec_slave/Readiness.h"

#include <algorithm>

#include "exec_slave/Duration.h"

namespace quelta::execslave {

bool hasReadyCondition(const ReadyCondition& condition)
{
    return !condition.line.empty() || !condition.tcp.empty() || !condition.command.empty();
}

Readiness judgeReadiness(const ReadyCondition& condition, std::chrono::milliseconds age, bool met)
{
    if (!hasReadyCondition(condition))
        return age >= condition.after ? Readiness::ready : Readiness::waiting;

    if (met)
        return Readiness::ready;

    return age >= condition.timeout ? Readiness::timedOut : Readiness::waiting;
}

std::chrono::milliseconds timeToReadinessChange(const ReadyCondition& condition,
                                                std::chrono::milliseconds age)
{
    const auto limit = hasReadyCondition(condition) ? condition.timeout : condition.after;
    return std::max(limit - age, std::chrono::milliseconds::zero());
}

std::string describeNotReady(const ReadyCondition& condition, const std::string& lastFailure)
{
    const auto text = "the program was not ready within " + describeSeconds(condition.timeout);

    if (!condition.line.empty())
        return text + ": no line of its output matched '" + condition.line + "'";

    return lastFailure.empty() ? text : text + ": " + lastFailure;
}

} // namespace quelta::execslave
