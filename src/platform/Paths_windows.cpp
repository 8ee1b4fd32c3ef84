#include "platform/Paths.h"

namespace quelta::platform {

bool absolutePathsHaveRoot()
{
    return true;
}

char nativeSeparator()
{
    return '\\';
}

// JUCE converts the UTF-16 paths of Windows safely.

juce::File executableFile()
{
    return juce::File::getSpecialLocation(juce::File::currentExecutableFile);
}

juce::File currentFolder()
{
    return juce::File::getCurrentWorkingDirectory();
}

juce::File resolvePath(const juce::String& path)
{
    return currentFolder().getChildFile(path);
}

juce::File temporaryFolder()
{
    return juce::File::getSpecialLocation(juce::File::tempDirectory);
}

} // namespace quelta::platform
