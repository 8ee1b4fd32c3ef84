// `quelta_exec_slave --check [FILE]`.
#pragma once

#include <string>
#include <vector>

namespace quelta::execslave {

/** Checks a configuration file, prints what would be run for an example master, the GPUs that were
    found and how processes are contained. `fileName` is empty for the usual file. Returns the exit
    status: 0, or 2 after printing all errors. */
int runCheck(const std::string& fileName);

} // namespace quelta::execslave
