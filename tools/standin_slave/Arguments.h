// The part of a render slave's command line that the stand-in needs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quelta {

struct Arguments
{
    uint16_t daemonPort = 0;  ///< Port of the daemon's slave monitor; 0 if missing or invalid.
    bool infoRequest = false; ///< The daemon wants only the version and the number of GPUs.

    /** `arguments` may begin with the program's name. Unknown arguments are ignored. The value of a
        known option is never taken for an option, because an alias may hold any text. */
    static Arguments parse(const std::vector<std::string>& arguments);
};

} // namespace quelta
