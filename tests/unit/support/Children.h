// The child processes of this process, zombies included, on systems with /proc.
#pragma once

#include <map>
#include <string>

#include <juce_core/juce_core.h>

namespace quelta::test {

inline bool processesAreShownAsFiles()
{
    return juce::File("/proc/self/status").existsAsFile();
}

/** The value of the line `name` in a process's status file, as in "State:\tZ (zombie)". */
inline std::string getStatusValue(const juce::File& process, const std::string& name)
{
    juce::StringArray lines;
    lines.addLines(process.getChildFile("status").loadFileAsString());

    for (const auto& line : lines)
        if (line.startsWith(name + ":"))
            return line.fromFirstOccurrenceOf(":", false, false).trim().toStdString();

    return {};
}

/** Process id and state of every child, without a sanitizer's symbolizer. */
inline std::map<std::string, std::string> getChildren()
{
    const auto self = getStatusValue(juce::File("/proc/self"), "Pid");
    std::map<std::string, std::string> children;

    for (const auto& entry : juce::File("/proc").findChildFiles(juce::File::findDirectories, false))
        if (entry.getFileName().containsOnly("0123456789") &&
            getStatusValue(entry, "PPid") == self &&
            !getStatusValue(entry, "Name").starts_with("llvm-symbolize"))
            children[entry.getFileName().toStdString()] = getStatusValue(entry, "State");

    return children;
}

} // namespace quelta::test
