// Linux: the process between the exec slave and the program that it runs.
//
// The guardian is a forked copy of the exec slave with a single thread. It is the parent of the
// program, adopts its orphaned descendants and reaps them. When its connection to the exec slave
// closes, it kills the whole tree: it is there for the exec slave that is killed itself.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "exec_slave/platform/ContainedProgram.h"

namespace quelta::execslave {

/** Everything that the guardian needs, prepared before the fork. */
struct GuardianPlan
{
    Containment containment = Containment::subreaper;
    std::string path;               ///< Empty: the program is only a process that ends at once.
    std::string folder;             ///< Empty: the current folder.
    std::vector<char*> arguments;   ///< Ends with null.
    std::vector<char*> environment; ///< Ends with null.
    std::string groupPath;          ///< Of the control group.
    int group = -1;                 ///< Its folder.
    int control = -1;               ///< The socket to the exec slave.
    int output = -1;                ///< The program's standard output and error.
};

/** What the guardian and the program's process report to the exec slave. The process IDs come from
    the kernel, with the message. */
struct GuardianReport
{
    enum class Kind : int32_t
    {
        guardian,      ///< The sender is the guardian, and the containment is set up.
        program,       ///< The sender is the program's process, before it runs the program.
        notContained,  ///< The containment cannot be set up. `value`: the error number.
        folderFailed,  ///< The program's folder cannot be entered. `value`: the error number.
        programFailed, ///< The program cannot be run. `value`: the error number.
        started,       ///< The program runs, unless it has failed before.
        ended          ///< `value`: its status as waitpid returns it.
    };

    Kind kind = Kind::guardian;
    int32_t value = 0;
};

/** Runs the guardian in the child process after fork, with all signals blocked. The exec slave
    sends it the number of a signal for the program's process group, in one byte. */
[[noreturn]] void runGuardian(const GuardianPlan& plan);

} // namespace quelta::execslave
