// The exec slave as a function, which main calls.
#pragma once

#include <string>
#include <vector>

namespace quelta::execslave {

/** Does what the command line asks for: an information run, a run for a master, a check of the
    configuration, the help. The arguments are UTF-8 and begin with the program's name. Returns the
    exit status. */
int runExecSlave(const std::vector<std::string>& arguments);

} // namespace quelta::execslave
