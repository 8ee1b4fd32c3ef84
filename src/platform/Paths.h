// Paths: how the system writes an absolute one, and the files and folders that the process itself
// has.
//
// JUCE's strings overflow on bytes that are not valid UTF-8, and JUCE does not check the names that
// the system gives it. What is returned here can always be handed to JUCE.
#pragma once

#include <juce_core/juce_core.h>

namespace quelta::platform {

/** Whether an absolute path names its root, a drive or a server. Otherwise "/" is the root of
    all. */
bool absolutePathsHaveRoot();

/** The separator of the system's own paths. */
char nativeSeparator();

/** The running program's own file, however it was started. */
juce::File executableFile();

/** The current folder. */
juce::File currentFolder();

/** The file that `path` names, a relative one seen from the current folder. */
juce::File resolvePath(const juce::String& path);

/** The folder for temporary files. */
juce::File temporaryFolder();

} // namespace quelta::platform
