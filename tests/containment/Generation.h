// One of three generations of processes, each in a session of its own and deaf to requests to end.
#pragma once

#include <string>

namespace quelta::test {

struct GenerationArguments
{
    std::string program; ///< This executable.
    std::string folder;
    int number = 1; ///< 1 to 3.
    std::string
        end; ///< What the first generation does once it is allowed to end: "exit" or "crash".
};

/** Locks FOLDER/NUMBER as long as it lives and starts the next generation. The first one prints
    "ready" once all three live, and ends when FOLDER/go exists. All end after two minutes. */
int runGeneration(const GenerationArguments& arguments);

} // namespace quelta::test
