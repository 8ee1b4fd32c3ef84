// The libraries that stand in for NVIDIA's NVML; tests/fake_nvml builds them beside the tests.
#pragma once

#include <string>

#include <juce_core/juce_core.h>

#include "platform/Paths.h"

namespace quelta::test {

/** The library with this behaviour. */
inline juce::File getFakeNvml(const char* behaviour)
{
    const auto* const name = platform::absolutePathsHaveRoot() ? "nvml.dll" : "libnvidia-ml.so.1";
    return platform::executableFile()
        .getSiblingFile("fake_nvml")
        .getChildFile(behaviour)
        .getChildFile(name);
}

/** Some library that every system has. */
inline std::string getLibraryOfTheSystem()
{
    return platform::absolutePathsHaveRoot() ? "kernel32.dll" : "libc.so.6";
}

} // namespace quelta::test
