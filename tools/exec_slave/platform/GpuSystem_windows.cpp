#include "exec_slave/platform/GpuSystem.h"

#include <juce_core/juce_core.h>

namespace quelta::execslave::platform {

std::string getNvmlName()
{
    // The driver installs it there. Not by its name alone: a file beside this program would do.
    return juce::File::getSpecialLocation(juce::File::windowsSystemDirectory)
        .getChildFile("nvml.dll")
        .getFullPathName()
        .toStdString();
}

bool hasOtherWaysThanNvml()
{
    return false;
}

bool limitsWithRocr()
{
    return false;
}

} // namespace quelta::execslave::platform
