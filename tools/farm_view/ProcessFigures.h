// What the operating system says about this process.
#pragma once

#include <cstdint>
#include <optional>

namespace quelta::farmview {

struct ProcessFigures
{
    double cpuSeconds = 0;
    double startSeconds = 0; ///< When the process was started, in seconds since 1970.
    uint64_t residentBytes = 0;
    uint64_t virtualBytes = 0;
    uint64_t openFiles = 0;           ///< On Windows: handles.
    std::optional<uint64_t> maxFiles; ///< Empty without a limit.
};

} // namespace quelta::farmview
