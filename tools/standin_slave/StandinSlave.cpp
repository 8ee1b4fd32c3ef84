#include "standin_slave/StandinSlave.h"

#include <juce_core/juce_core.h>

#include "platform/Paths.h"
#include "standin_slave/Arguments.h"
#include "standin_slave/Report.h"
#include "standin_slave/ScenarioParser.h"
#include "standin_slave/ScenarioPlayer.h"
#include "standin_slave/platform/CurrentProcess.h"

namespace quelta {

namespace {

constexpr uint32_t badStartStatus = 2;

void reportStart(const std::vector<std::string>& arguments)
{
    for (size_t i = 0; i < arguments.size(); ++i)
        report("argument %u: [%s]", static_cast<unsigned>(i),
               escapeForReport(arguments[i]).c_str());

    const auto folder = platform::currentFolder().getFullPathName();
    report("folder: [%s]", escapeForReport(folder.toStdString()).c_str());
    report("pid: %lu", getProcessId());
}

/** Reads the scenario file; a missing file is not an error. Returns false after reporting an
    error. */
bool loadScenario(Scenario& scenario)
{
    const auto executable = platform::executableFile();
    const auto file = executable.withFileExtension("txt");
    const auto name = file.getFileName().toStdString();
    juce::MemoryBlock text;

    if (file.existsAsFile())
    {
        if (!file.loadFileAsData(text))
        {
            report("cannot read %s", name.c_str());
            return false;
        }

        report("scenario: %s", name.c_str());
    }

    std::string error;

    if (parseScenario({static_cast<const char*>(text.getData()), text.getSize()}, scenario, error))
        return true;

    report("%s, %s", name.c_str(), error.c_str());
    return false;
}

} // namespace

uint32_t runStandinSlave(const std::vector<std::string>& arguments)
{
    reportStart(arguments);
    Scenario scenario;

    if (!loadScenario(scenario))
        return badStartStatus;

    const auto parsed = Arguments::parse(arguments);

    if (parsed.daemonPort == 0)
    {
        report("no --daemon-port from 1 to 65535 was given");
        return badStartStatus;
    }

    return ScenarioPlayer(parsed.infoRequest ? scenario.info : scenario.run, parsed.daemonPort)
        .play();
}

} // namespace quelta
