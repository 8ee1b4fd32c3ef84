// The stand-in render slave as a function, which each system's entry point calls
// (platform/EntryPoint_*.cpp).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quelta {

/** Reports how it was started, reads the scenario file beside the executable and plays it. The
    arguments are UTF-8 and begin with the program's name. Returns the exit status. */
uint32_t runStandinSlave(const std::vector<std::string>& arguments);

} // namespace quelta
