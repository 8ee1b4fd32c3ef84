// Linux: what the guardian needs to run a program, as the C strings that exec takes.
#pragma once

#include <string>
#include <vector>

#include "exec_slave/ProgramStart.h"
#include "exec_slave/platform/Guardian.h"

namespace quelta::execslave {

class ProgramPlan
{
public:
    /** The plan of a process that runs nothing and ends at once. */
    ProgramPlan() = default;

    explicit ProgramPlan(const ProgramStart& start);

    ProgramPlan(const ProgramPlan&) = delete;
    ProgramPlan& operator=(const ProgramPlan&) = delete;

    GuardianPlan guardian;

private:
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
};

} // namespace quelta::execslave
