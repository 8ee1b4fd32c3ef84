// The stand-in slave in a temporary folder, with the scenario that it plays.
#pragma once

#include <string_view>

#include "TemporaryFolder.h"

namespace quelta::test {

class StandinSlave
{
public:
    explicit StandinSlave(std::string_view scenario, const char* name = "quelta_standin_slave")
        : executable(folder.getChild(name).withFileExtension(getTestProgram().getFileExtension()))
    {
        getTestProgram()
            .getSiblingFile("quelta_standin_slave")
            .withFileExtension(getTestProgram().getFileExtension())
            .copyFileTo(executable);
        executable.setExecutePermission(true);
        play(scenario);
    }

    /** Sets the scenario of the next launch. */
    void play(std::string_view scenario)
    {
        writeBytes(executable.withFileExtension("txt"), scenario);
    }

    const juce::File& getFile() const { return executable; }

private:
    static juce::File getTestProgram()
    {
        return juce::File::getSpecialLocation(juce::File::currentExecutableFile);
    }

    const TemporaryFolder folder;
    const juce::File executable;
};

} // namespace quelta::test
