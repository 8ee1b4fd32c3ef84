// The settings from the command line. A plain value: each class that needs them keeps a copy.
#pragma once

#include <cstdint>

#include <juce_core/juce_core.h>

namespace quelta {

struct DaemonSettings
{
    /** The render slave. Start-up resolves its path against the current folder. */
    juce::File slaveExecutable;

    juce::String slaveAlias;        ///< The slave's nickname, sent to the slave and to masters.
    uint16_t daemonPort = 0;        ///< The UDP port on which beacons arrive; 0: not given.
    juce::Array<int32_t> gpuIds;    ///< 1-based, in the order given; empty: all GPUs.
    int64_t outOfCoreMaxMemory = 0; ///< Bytes; 0: no out-of-core rendering.
    int64_t outOfCoreHeadroom = 0;  ///< Bytes; 0: the slave's default.
};

} // namespace quelta
