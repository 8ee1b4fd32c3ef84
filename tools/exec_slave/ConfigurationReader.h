// Reads and checks the TOML file of the exec slave.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <juce_core/juce_core.h>

#include "exec_slave/Configuration.h"

namespace quelta::execslave {

struct ConfigurationResult
{
    Configuration configuration;     ///< Valid only without errors.
    std::vector<std::string> errors; ///< All of them, each "FILE:LINE:COLUMN: TEXT".
};

/** Parses TOML. `fileName` appears in the errors. Checks types, ranges, unknown keys, placeholders
    and regular expressions. */
ConfigurationResult parseConfiguration(std::string_view text, const std::string& fileName);

/** Reads a file. A missing or unreadable file is an error with the system's own text. */
ConfigurationResult loadConfiguration(const juce::File& file);

/** The file that the environment variable QUELTA_EXEC_SLAVE_CONFIG names, else the one beside the
    executable, with its name and ".toml". */
juce::File findConfigurationFile();

} // namespace quelta::execslave
