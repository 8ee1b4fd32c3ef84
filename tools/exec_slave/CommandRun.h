// Runs a short command, such as a check, to its end.
#pragma once

#include <chrono>
#include <stop_token>
#include <string>

#include "exec_slave/ProgramStart.h"

namespace quelta::execslave {

struct CommandResult
{
    enum class Outcome
    {
        ended,    ///< `status` and `output` are valid.
        timedOut, ///< It took too long and was killed.
        stopped,  ///< The caller asked to stop, and it was killed.
        failed    ///< It could not be started; `error` is the system's text.
    };

    Outcome outcome = Outcome::failed;
    int status = 0;     ///< The exit status, or 128 plus the signal's number.
    std::string output; ///< Standard output and error, at most the first 64 KiB.
    std::string error;
};

/** Starts the command with its whole process tree contained, waits for it, and leaves nothing
    behind. Any thread. */
CommandResult runCommand(const ProgramStart& start, std::chrono::milliseconds limit,
                         const std::stop_token& stop);

} // namespace quelta::execslave
