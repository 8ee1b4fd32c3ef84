// The ways in which a process tree can be contained on this system, each made to be the best one.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include <juce_core/juce_core.h>

namespace quelta::test {

struct ContainmentWay
{
    std::string name; ///< For the test's name.
    std::string text; ///< What execslave::describe calls it.

    /** Words to put in front of a command, so that its process finds this way. That keeps its
        process ID. */
    juce::StringArray prefix;

    int numRounds = 200; ///< Of starting and killing a program in the test for leaks.

    friend std::ostream& operator<<(std::ostream& stream, const ContainmentWay& way)
    {
        return stream << way.name;
    }
};

std::vector<ContainmentWay> listContainmentWays();

/** How this system describes the end of a program that crashes or is killed. */
extern const char* const crashText;
extern const char* const killText;

/** The system's texts for a file that does not exist, and for one that is no program. */
extern const char* const missingFileText;
extern const char* const noProgramText;

/** Lets all users write to a folder. */
void makePublic(const std::string& folder);

} // namespace quelta::test
