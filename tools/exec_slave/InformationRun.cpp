#include "exec_slave/InformationRun.h"

#include <chrono>
#include <thread>

#include "exec_slave/ExitStatus.h"
#include "exec_slave/MonitorLink.h"
#include "exec_slave/SessionInbox.h"
#include "exec_slave/SlaveSetup.h"

namespace quelta::execslave {

namespace {

constexpr std::chrono::seconds sendLimit{5};

/** The daemon sends nothing that would show that it has read SLAVE_INFO, and reads the status every
    100 ms. It calls a slave that ends before that crashed. */
constexpr std::chrono::milliseconds lingering{500};

} // namespace

int runInformation(const SlaveArguments& arguments, const Configuration& configuration)
{
    SessionInbox inbox;
    MonitorLink link(inbox);
    SlaveSetup setup;

    if (const int status = setUp(arguments, configuration, link, inbox, setup);
        status != exitSuccess)
        return status;

    link.announce(setup.version, setup.numGpus);

    if (!link.waitUntilAnnounced(sendLimit))
        return exitNoDaemon;

    std::this_thread::sleep_for(lingering);
    return exitSuccess;
}

} // namespace quelta::execslave
