// What both kinds of run need before they report to the daemon: the configuration with its
// placeholders replaced, the GPUs and the version.
#pragma once

#include <cstdint>

#include "exec_slave/Configuration.h"
#include "exec_slave/MonitorLink.h"
#include "exec_slave/ProgramStart.h"
#include "exec_slave/SessionInbox.h"
#include "exec_slave/SlaveArguments.h"

namespace quelta::execslave {

struct SlaveSetup
{
    /** Its placeholders are replaced, and its environment also limits programs
        to the selected GPUs; variables that the administrator has set take precedence. */
    Configuration configuration;

    uint32_t version = 0;
    uint32_t numGpus = 0;
};

/** Connects to the daemon, which is told from then on that the slave is starting; detects the GPUs,
    checks the selection and runs the version command, unless the inbox is asked to stop. Returns
    the exit status, after it has written what is wrong, and fills `setup` if that is 0. */
int setUp(const SlaveArguments& arguments, const Configuration& configuration, MonitorLink& link,
          const SessionInbox& inbox, SlaveSetup& setup);

/** A command of the configuration, in the program's folder and environment. */
ProgramStart makeStart(const Configuration& configuration, const Command& command);

} // namespace quelta::execslave
