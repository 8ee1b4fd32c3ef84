// The settings that the command line gives. A plain record: every owner keeps a copy of its own.
#pragma once

#include <cstdint>

#include <juce_core/juce_core.h>

namespace quelta {

struct DaemonSettings
{
    juce::File
        slaveExecutable;     ///< The render slave; resolved against the current folder at start-up.
    juce::String slaveAlias; ///< The slave's nickname, handed on to the slave and to masters.
    uint16_t daemonPort = 0; ///< Where beacons arrive; 0: not given.
    juce::Array<int32_t> gpuIds;    ///< 1-based, in the order given; empty: all GPUs.
    int64_t outOfCoreMaxMemory = 0; ///< Bytes; 0: no out-of-core rendering.
    int64_t outOfCoreHeadroom = 0;  ///< Bytes; 0: the slave's default.
};

} // namespace quelta
