// The text that `--check` prints. Pure.
#pragma once

#include <string>

#include "exec_slave/Configuration.h"
#include "exec_slave/Gpus.h"
#include "exec_slave/Placeholders.h"

namespace quelta::execslave {

/** What the text tells of this machine. */
struct CheckFacts
{
    std::string fileName;
    std::string program; ///< The program's full path; empty if it was not found.
    bool folderExists = true;
    DetectedGpus detected;
    GpuSelection selection; ///< Of all GPUs.
    std::string containment;
};

/** Describes the run for an example master. The configuration still has its placeholders. */
std::string describeRun(const Configuration& configuration, const PlaceholderValues& example,
                        const CheckFacts& facts);

/** Returns the words of a command with blanks between them. Words with other characters than those
    of usual names and options are quoted as in a POSIX shell. */
std::string formatCommand(const Command& command);

} // namespace quelta::execslave
