// The environment variables of this process.
#pragma once

#include <optional>
#include <string>

namespace quelta::execslave {

/** Returns a variable's value as the system has it: UTF-8 on Windows, any bytes on Linux. */
std::optional<std::string> readEnvironment(const char* name);

} // namespace quelta::execslave
