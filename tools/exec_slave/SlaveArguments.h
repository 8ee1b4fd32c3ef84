// The render slave's command line as the daemon writes it, and the exec slave's own options.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quelta::execslave {

struct SlaveArguments
{
    std::string masterAddress = "0.0.0.0";
    uint16_t masterPort = 0;
    uint16_t daemonPort = 0; ///< Port of the daemon's slave monitor.
    std::string alias;
    std::vector<unsigned> gpus; ///< 0-based; empty: all.
    int64_t outOfCore = 0;      ///< Bytes; 0: disabled.
    int64_t headroom = 0;       ///< Bytes.
    bool infoRequest = false;
    std::string error; ///< Empty if the command line is right.
};

/** `arguments` begins with the program's name. */
SlaveArguments parseSlaveArguments(const std::vector<std::string>& arguments);

} // namespace quelta::execslave
