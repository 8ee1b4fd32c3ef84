#include "exec_slave/SlaveSetup.h"

#include <utility>

#include "exec_slave/Check.h"
#include "exec_slave/CommandRun.h"
#include "exec_slave/ExitStatus.h"
#include "exec_slave/Gpus.h"
#include "exec_slave/OutputWriter.h"
#include "exec_slave/Placeholders.h"
#include "exec_slave/Version.h"

namespace quelta::execslave {

namespace {

constexpr std::chrono::seconds versionLimit{30};

/** A configured count of 0 needs no detection, which may take seconds. */
DetectedGpus detectIfNeeded(const Configuration& configuration)
{
    return configuration.gpus == 0U ? DetectedGpus{} : detectGpus();
}

PlaceholderValues makeValues(const SlaveArguments& arguments, std::vector<unsigned> gpus)
{
    PlaceholderValues values;
    values.masterAddress = arguments.masterAddress;
    values.masterPort = arguments.masterPort;
    values.alias = arguments.alias;
    values.gpus = std::move(gpus);
    values.outOfCore = arguments.outOfCore;
    values.headroom = arguments.headroom;
    return values;
}

/** Returns what is wrong. */
std::string findVersion(const Configuration& configuration, const std::stop_token& stop,
                        uint32_t& version)
{
    version = configuration.version;

    if (configuration.versionCommand.empty())
        return {};

    const auto command = makeStart(configuration, configuration.versionCommand);
    const auto result = runCommand(command, versionLimit, stop);
    auto error = describeFailure(command, result, versionLimit);

    if (error.empty())
        version = extractVersion(result.output, configuration.versionPattern, error).value_or(0);

    return error.empty() ? error : "cannot find the version: " + error;
}

/** Returns what is wrong. */
std::string findGpus(const SlaveArguments& arguments, const Configuration& configuration,
                     OutputWriter& writer, SlaveSetup& setup)
{
    const auto detected = detectIfNeeded(configuration);

    // The information run at the daemon's start has told them once and for all.
    if (arguments.infoRequest)
        for (const auto& note : detected.notes)
            writer.writeMessage(note);

    auto selection =
        selectGpus(detected, readInheritedSelection(), arguments.gpus, configuration.gpus);

    if (!selection.error.empty())
        return selection.error;

    setup.numGpus = static_cast<uint32_t>(selection.gpus.size());
    const auto values = makeValues(arguments, std::move(selection.gpus));

    if (auto error = findExpansionError(configuration, values); !error.empty())
        return error;

    setup.configuration = expandPlaceholders(configuration, values);
    setup.configuration.environment.merge(selection.environment);
    return {};
}

} // namespace

int setUp(const SlaveArguments& arguments, const Configuration& configuration, MonitorLink& link,
          const SessionInbox& inbox, SlaveSetup& setup)
{
    OutputWriter writer{OutputSettings{}}; // the configured one needs the placeholders

    if (auto error = link.open(arguments.daemonPort); !error.empty())
    {
        writer.writeMessage(error);
        return exitNoDaemon;
    }

    auto error = findGpus(arguments, configuration, writer, setup);

    if (error.empty())
        error = findVersion(setup.configuration, inbox.getStopToken(), setup.version);

    if (error.empty() || inbox.getStopToken().stop_requested())
        return exitSuccess;

    writer.writeMessage(error);
    return exitBadConfiguration;
}

ProgramStart makeStart(const Configuration& configuration, const Command& command)
{
    return {command, configuration.folder, configuration.environment};
}

} // namespace quelta::execslave
