// The descriptors that this process has open, where the system shows them as files.
#pragma once

#include <juce_core/juce_core.h>

namespace quelta::test {

inline bool descriptorsCanBeCounted()
{
    return juce::File("/proc/self/fd").isDirectory();
}

inline int countDescriptors()
{
    return juce::File("/proc/self/fd").getNumberOfChildFiles(juce::File::findFilesAndDirectories);
}

} // namespace quelta::test
