#include "exec_slave/ExecSlave.h"

#include <cstdio>

#include "exec_slave/CheckReport.h"
#include "exec_slave/ConfigurationReader.h"
#include "exec_slave/ExitStatus.h"
#include "exec_slave/Gpus.h"
#include "exec_slave/InformationRun.h"
#include "exec_slave/OutputWriter.h"
#include "exec_slave/Session.h"
#include "exec_slave/SlaveArguments.h"
#include "exec_slave/SlaveSetup.h"
#include "exec_slave/platform/StopSignals.h"

namespace quelta::execslave {

namespace {

constexpr auto help =
    "Runs a configured program as the render slave of quelta_daemon, which starts this program:\n"
    "\n"
    "  quelta_daemon --port 5130 --slave ./quelta_exec_slave\n"
    "\n"
    "The configuration is a TOML file beside this program, with its name and the extension .toml,\n"
    "or the file that the environment variable QUELTA_EXEC_SLAVE_CONFIG names.\n"
    "\n"
    "  quelta_exec_slave --check [FILE]   check a configuration and show what would be run\n"
    "  quelta_exec_slave --help           show this text\n"
    "  quelta_exec_slave --version        show the version\n"
    "\n"
    "Exit status: that of the program (128 plus the signal's number if a signal ended it), or\n"
    "  2    the configuration or the command line is wrong\n"
    "  121  the daemon cannot be reached\n"
    "  122  the program cannot be started\n"
    "  123  a line of the program's output matched one of the configured errors\n"
    "  124  the program was not ready in time\n";

int refuse(const std::vector<std::string>& errors)
{
    OutputWriter writer{OutputSettings{}};

    for (const auto& error : errors)
        writer.writeMessage(error);

    return exitBadConfiguration;
}

int runForMaster(const SlaveArguments& arguments, const Configuration& configuration)
{
    SessionInbox inbox;
    const StopSignals signals([&](StopSignal signal) {
        inbox.requestStop(signal == StopSignal::asked ? StopReason::signal
                                                      : StopReason::systemEnds);
    });
    MonitorLink link(inbox);
    SlaveSetup setup;

    if (const int status = setUp(arguments, configuration, link, inbox, setup);
        status != exitSuccess || inbox.getStopToken().stop_requested())
        return status;

    OutputWriter writer(setup.configuration.output);
    return Session(setup, link, inbox, writer).run();
}

int runSlave(const std::vector<std::string>& arguments)
{
    const auto parsed = parseSlaveArguments(arguments);

    if (!parsed.error.empty())
        return refuse({parsed.error});

    const auto loaded = loadConfiguration(findConfigurationFile());

    if (!loaded.errors.empty())
        return refuse(loaded.errors);

    return parsed.infoRequest ? runInformation(parsed, loaded.configuration)
                              : runForMaster(parsed, loaded.configuration);
}

} // namespace

int runExecSlave(const std::vector<std::string>& arguments)
{
    const auto option = arguments.size() > 1 ? arguments[1] : std::string();

    if (option == gpuDetectionOption)
        runGpuDetection(arguments.size() > 2 ? arguments[2] : std::string());

    if (option == "--check" && arguments.size() <= 3)
        return runCheck(arguments.size() == 3 ? arguments[2] : std::string());

    if (option == "--help" || option == "--version")
    {
        std::fputs(option == "--help" ? help : "quelta_exec_slave " QUELTA_VERSION "\n", stdout);
        return exitSuccess;
    }

    return runSlave(arguments);
}

} // namespace quelta::execslave
