#include <cstdlib>

#include "exec_slave/platform/Environment.h"

namespace quelta::execslave {

std::optional<std::string> readEnvironment(const char* name)
{
    const auto* const value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

} // namespace quelta::execslave
