// The stand-in render slave as a function; the entry point of each system only gathers the
// arguments.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quelta {

/** Reports how it was started, reads the scenario beside the executable and plays it. The arguments
    are in UTF-8 and begin with the program's name. Returns the exit status. */
uint32_t runStandinSlave(const std::vector<std::string>& arguments);

} // namespace quelta
