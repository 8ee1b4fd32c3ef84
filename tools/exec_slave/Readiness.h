// Decides whether the program is ready to work. Pure functions.
#pragma once

#include <chrono>
#include <string>

#include "exec_slave/Configuration.h"

namespace quelta::execslave {

enum class Readiness
{
    waiting,
    ready,
    timedOut
};

/** Whether the program reports readiness, by a line, a port or a command. Without such a condition
    it is ready once it has lived long enough. */
bool hasReadyCondition(const ReadyCondition& condition);

/** Judges a program that has lived `age`. `met` is whether its ready condition, if it has one, has
    held once. */
Readiness judgeReadiness(const ReadyCondition& condition, std::chrono::milliseconds age, bool met);

/** How long until time alone changes the judgement. */
std::chrono::milliseconds timeToReadinessChange(const ReadyCondition& condition,
                                                std::chrono::milliseconds age);

/** Says that the time has run out, and what was expected. `lastFailure` is why the latest check has
    failed, if there is a check. */
std::string describeNotReady(const ReadyCondition& condition, const std::string& lastFailure);

} // namespace quelta::execslave
