// The checks of readiness and health: a port that accepts connections, a command that succeeds.
// Each returns an empty string, or why it has failed. Any thread.
#pragma once

#include <chrono>
#include <stop_token>
#include <string>

#include "exec_slave/CommandRun.h"
#include "exec_slave/ProgramStart.h"

namespace quelta::execslave {

/** `target` is HOST:PORT. */
std::string checkPort(const std::string& target, std::chrono::milliseconds limit,
                      const std::stop_token& stop);

std::string checkCommand(const ProgramStart& command, std::chrono::milliseconds limit,
                         const std::stop_token& stop);

/** Why a command has not succeeded within its limit; empty if it has. */
std::string describeFailure(const ProgramStart& command, const CommandResult& result,
                            std::chrono::milliseconds limit);

} // namespace quelta::execslave
