// What the stand-in needs from the command line that the daemon gives a render slave.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quelta {

struct Arguments
{
    uint16_t daemonPort = 0;  ///< Port of the daemon's slave monitor; 0 if none was given.
    bool infoRequest = false; ///< Only version and GPUs are wanted.

    /** Looks through the arguments, the program's name left out. Whatever else is there is passed
        over: an alias may hold anything, quotes too. */
    static Arguments parse(const std::vector<std::string>& arguments);
};

} // namespace quelta
