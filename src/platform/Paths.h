// The syntax of the system's paths, and the files and folders of this process.
//
// JUCE's strings read past the end of malformed UTF-8, and JUCE does not check the paths that it
// gets from the system. Every path returned here is safe to pass to JUCE.
#pragma once

#include <juce_core/juce_core.h>

namespace quelta::platform {

/** Whether absolute paths begin with a drive or server (Windows) rather than with "/". */
bool absolutePathsHaveRoot();

/** Returns the separator between the components of a path. */
char nativeSeparator();

/** Returns the file of the running program, no matter how the program was started. */
juce::File executableFile();

juce::File currentFolder();

/** Resolves `path` against the current folder. */
juce::File resolvePath(const juce::String& path);

/** Returns the folder for temporary files. */
juce::File temporaryFolder();

} // namespace quelta::platform
