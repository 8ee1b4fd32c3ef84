// The descriptors that this process has open, where the system shows them as files.
#pragma once

#include <juce_core/juce_core.h>

#include "platform/Paths.h"

namespace quelta::test {

/** Not where paths have drives: Wine shows the folder there, but of a process of its own. */
inline bool descriptorsCanBeCounted()
{
    return !platform::absolutePathsHaveRoot() && juce::File("/proc/self/fd").isDirectory();
}

inline int countDescriptors()
{
    return juce::File("/proc/self/fd").getNumberOfChildFiles(juce::File::findFilesAndDirectories);
}

} // namespace quelta::test
