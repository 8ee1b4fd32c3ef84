// The run in which the daemon learns the version and the number of GPUs.
#pragma once

#include "exec_slave/Configuration.h"
#include "exec_slave/SlaveArguments.h"

namespace quelta::execslave {

/** Connects, reports and returns the exit status, after it has written what is wrong. */
int runInformation(const SlaveArguments& arguments, const Configuration& configuration);

} // namespace quelta::execslave
