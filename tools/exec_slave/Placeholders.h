// The placeholders in the commands, folders, files and environment of the configuration.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "exec_slave/Configuration.h"

namespace quelta::execslave {

struct PlaceholderValues
{
    std::string masterAddress; ///< Dotted decimal.
    uint16_t masterPort = 0;
    std::string alias;
    std::vector<unsigned> gpus; ///< 0-based; the selected ones, or all.
    int64_t outOfCore = 0;      ///< Bytes.
    int64_t headroom = 0;       ///< Bytes.
};

/** Returns what is wrong with the placeholders of a text, or an empty string. */
std::string findPlaceholderError(std::string_view text);

/** Replaces the placeholders. The text must have no placeholder error. Braces in a value stay as
    they are. */
std::string expandPlaceholders(std::string_view text, const PlaceholderValues& values);

/** Replaces them in all commands, folders, files, environment variables and HOST:PORTs. */
Configuration expandPlaceholders(Configuration configuration, const PlaceholderValues& values);

/** Returns why the values do not fit the configuration: {master_port+N} is above 65535. Otherwise
    an empty string. */
std::string findExpansionError(Configuration configuration, const PlaceholderValues& values);

} // namespace quelta::execslave
