// Parses the daemon's command line. The result depends only on the parameters; errors are logged.
#pragma once

#include <cstdint>

#include <juce_core/juce_core.h>

#include "app/DaemonSettings.h"

namespace quelta {

/** Parses `parameters` (without the executable's name) into `settings` and `slavePath`, after
    resetting both. Returns true if every option is valid and both a slave path and a port other
    than 0 are given. Otherwise logs the reason and the syntax. */
bool parseCommandLine(const juce::StringArray& parameters, DaemonSettings& settings,
                      juce::String& slavePath);

/** Converts a size such as "4G" or "512m" to bytes. Saturates on overflow. */
int64_t parseMemorySize(const juce::String& text);

} // namespace quelta
