#include "app/CommandLine.h"

#include <limits>

#include "log/Log.h"
#include "platform/Paths.h"
#include "util/LeadingInteger.h"

namespace quelta {

namespace {

juce::StringArray splitList(const juce::String& value)
{
    return juce::StringArray::fromTokens(value, " ,", "");
}

bool parseGpuList(const juce::String& value, juce::Array<int32_t>& gpuIds)
{
    for (const auto& token : splitList(value))
    {
        const auto id = parseLeadingInt32(token.toRawUTF8());

        if (id < 1)
        {
            logError("invalid GPU ID '%s', must be an integral number >= 1", token.toRawUTF8());
            return false;
        }

        gpuIds.add(id);
    }

    return true;
}

void parseOutOfCore(const juce::String& value, DaemonSettings& settings)
{
    const auto sizes = splitList(value);

    if (sizes.size() >= 1)
        settings.outOfCoreMaxMemory = parseMemorySize(sizes[0]);

    if (sizes.size() >= 2)
        settings.outOfCoreHeadroom = parseMemorySize(sizes[1]);
}

bool parseOption(const juce::String& option, const juce::String& value, DaemonSettings& settings,
                 juce::String& slavePath)
{
    if (option == "--slave")
        slavePath = value;
    else if (option == "--alias")
        settings.slaveAlias = value;
    else if (option == "--port")
        settings.daemonPort = static_cast<uint16_t>(parseLeadingInt32(value.toRawUTF8()));
    else if (option == "--gpus")
        return parseGpuList(value, settings.gpuIds);
    else if (option == "--out-of-core")
        parseOutOfCore(value, settings);
    else
    {
        logError("unknown command line argument '%s'", option.toRawUTF8());
        return false;
    }

    return true;
}

/** Every option takes one value. If the last option lacks its value, the value is empty. */
bool parseOptions(const juce::StringArray& parameters, DaemonSettings& settings,
                  juce::String& slavePath)
{
    for (int i = 0; i < parameters.size(); i += 2)
    {
        const auto& value = parameters[i + 1];

        if (!parseOption(parameters[i], value.isQuotedString() ? value.unquoted() : value, settings,
                         slavePath))
            return false;
    }

    if (slavePath.isNotEmpty() && settings.daemonPort != 0)
        return true;

    logError("%s", slavePath.isNotEmpty() ? "no daemon port specified"
                                          : "No path to the Quelta render slave given.");
    return false;
}

void logSyntax()
{
    const auto program = platform::executableFile().getFileName();

    logError("\ncommand line syntax:");
    logError(
        "  %s  --port <daemon port>  --slave \"<path to binary>\"  [--alias \"<slave nickname>\"]  "
        "[--gpus \"<IDs of GPUs to use>\"]  [--out-of-core <max OOC "
        "memory>[k|K|m|M|g|G][,<headroom>[k|K|m|M|g|G]]",
        program.toRawUTF8());
    logError("\n  (k/K = KiloByte, m/M = MegaByte, g/G = GigaByte)");
}

int64_t getMultiplier(juce::juce_wchar lastCharacter)
{
    switch (lastCharacter)
    {
        case 'k':
        case 'K':
            return 0x400;
        case 'm':
        case 'M':
            return 0x100000;
        case 'g':
        case 'G':
            return 0x40000000;
        default:
            return 1;
    }
}

} // namespace

bool parseCommandLine(const juce::StringArray& parameters, DaemonSettings& settings,
                      juce::String& slavePath)
{
    settings = {};
    slavePath.clear();

    if (parseOptions(parameters, settings, slavePath))
        return true;

    logSyntax();
    return false;
}

int64_t parseMemorySize(const juce::String& text)
{
    using Limits = std::numeric_limits<int64_t>;

    const auto number = parseLeadingInt64(text.toRawUTF8());
    const auto multiplier = getMultiplier(text.getLastCharacter());

    if (number > Limits::max() / multiplier)
        return Limits::max();

    if (number < Limits::min() / multiplier)
        return Limits::min();

    return number * multiplier;
}

} // namespace quelta
