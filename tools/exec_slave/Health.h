// Decides whether the program is alive, which is the condition for heartbeats. Pure.
//
// A program that has become ready counts as alive until a check fails. So the first check follows a
// whole period later, and a program that opens its port a moment after it reports readiness is not
// given up.
#pragma once

#include <chrono>
#include <string>

#include "exec_slave/Configuration.h"

namespace quelta::execslave {

struct HealthObservation
{
    std::string tcpFailure;     ///< Why the latest check of the port has failed; else empty.
    std::string commandFailure; ///< The same for the command.

    /** Since the latest line of output, or since the program became ready if that is later. */
    std::chrono::milliseconds silence{0};
};

/** Returns why the program does not count as alive; empty if it does. */
std::string findIllness(const AliveCondition& condition, const HealthObservation& seen);

/** Remembers what has been reported, so that each change is reported once. */
class HealthReport
{
public:
    /** Returns the line to print, if any: when the program stops being alive, for another reason
        than before, and when it is alive again. The details of a reason may change unreported. */
    std::string update(const AliveCondition& condition, const HealthObservation& seen);

private:
    enum class Kind
    {
        alive,
        tcp,
        command,
        silence
    };

    static Kind classify(const AliveCondition& condition, const HealthObservation& seen);

    Kind reported = Kind::alive;
};

} // namespace quelta::execslave
