#include "exec_slave/CheckReport.h"

#include <cstdio>

#include "exec_slave/CheckText.h"
#include "exec_slave/ConfigurationReader.h"
#include "exec_slave/ExitStatus.h"
#include "exec_slave/platform/ContainedProgram.h"
#include "platform/Console.h"
#include "platform/Paths.h"
#include "util/ValidUtf8.h"

namespace quelta::execslave {

namespace {

/** The example's address is one that is reserved for documentation. */
PlaceholderValues makeExample(const GpuSelection& selection)
{
    PlaceholderValues example;
    example.masterAddress = "192.0.2.1";
    example.masterPort = 21000;
    example.alias = "node1";
    example.gpus = selection.gpus;
    example.outOfCore = int64_t{8} << 30;
    example.headroom = int64_t{1} << 30;
    return example;
}

juce::File resolve(const std::string& name)
{
    return platform::resolvePath(juce::String::fromUTF8(toValidUtf8(name).c_str()));
}

void print(const std::string& text)
{
    auto& console = platform::getConsole();

    if (!console.isRealConsole(platform::StandardStream::output))
    {
        std::fputs(text.c_str(), stdout);
        return;
    }

    auto wide = platform::toTerminatedUtf16(text.c_str());
    wide.pop_back();
    console.write(platform::StandardStream::output, wide);
}

/** Appends what is found on this machine to `text`. Returns false if the example has an error. */
bool describe(const std::string& fileName, const Configuration& configuration, std::string& text)
{
    CheckFacts facts;
    facts.fileName = fileName;
    facts.detected = detectGpus();
    facts.selection = selectGpus(facts.detected, readInheritedSelection(), {}, configuration.gpus);
    facts.containment = execslave::describe(findContainment());

    const auto example = makeExample(facts.selection);

    if (const auto error = findExpansionError(configuration, example); !error.empty())
    {
        text += fileName + ": " + error + '\n';
        return false;
    }

    const auto run = expandPlaceholders(configuration, example);
    facts.program = findProgram({run.command, run.folder, run.environment});
    facts.folderExists = run.folder.empty() || resolve(run.folder).isDirectory();
    text += describeRun(configuration, example, facts);
    return true;
}

} // namespace

int runCheck(const std::string& fileName)
{
    const auto file = fileName.empty() ? findConfigurationFile() : resolve(fileName);
    const auto loaded = loadConfiguration(file);
    std::string text;

    for (const auto& error : loaded.errors)
        text += error + '\n';

    const auto right = loaded.errors.empty() &&
                       describe(file.getFullPathName().toStdString(), loaded.configuration, text);
    print(text);
    return right ? exitSuccess : exitBadConfiguration;
}

} // namespace quelta::execslave
