// The daemon's command line, as a pure function of its parameters. What is wrong with it is logged
// as errors.
#pragma once

#include <cstdint>

#include <juce_core/juce_core.h>

#include "app/DaemonSettings.h"

namespace quelta {

/** Reads `parameters` (without the executable's name) into `settings` and `slavePath`, which are
    reset first. True only when a slave path and a port other than 0 were given and nothing was
    wrong; otherwise the reason and the syntax have been logged. */
bool parseCommandLine(const juce::StringArray& parameters, DaemonSettings& settings,
                      juce::String& slavePath);

/** The bytes of a size such as "4G" or "512m"; what does not fit saturates. */
int64_t parseMemorySize(const juce::String& text);

} // namespace quelta
