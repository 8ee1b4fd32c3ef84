// Stands for the exec slave: contains three generations of processes and ends them in some way.
#pragma once

#include <string>

namespace quelta::test {

struct DriverArguments
{
    std::string program; ///< This executable.
    std::string scenario;
    std::string folder; ///< For the generations.
    std::string end;    ///< Of the first generation.
};

/** Prints how the program is contained, then what happens. The scenarios:

    end      lets the program end, then kills what is left
    kill     kills it all
    destroy  destroys the object instead
    hold     waits for two minutes, for a test that kills this process
    leave    ends this process at once
    rounds   starts and kills a program many times
    shell    runs the shell command `end` and prints its output; Linux */
int runDriver(const DriverArguments& arguments);

} // namespace quelta::test
