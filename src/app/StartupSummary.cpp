#include "app/StartupSummary.h"

#include "log/Log.h"

namespace quelta {

namespace {

juce::String describeGpuSelection(const juce::Array<int32_t>& gpuIds)
{
    if (gpuIds.isEmpty())
        return "all";

    juce::StringArray ids;

    for (const auto id : gpuIds)
        ids.add(juce::String(id));

    return ids.joinIntoString(", ");
}

void printOutOfCore(const DaemonSettings& settings)
{
    const bool enabled = settings.outOfCoreMaxMemory != 0;
    logUnprefixed("Out-of-core rendering: %s", enabled ? "enabled" : "disabled");

    if (!enabled)
        return;

    const auto headroom = settings.outOfCoreHeadroom == 0
                              ? juce::String("use default value")
                              : juce::File::descriptionOfSizeInBytes(settings.outOfCoreHeadroom);
    logUnprefixed("  Max RAM usage:   %s",
                  juce::File::descriptionOfSizeInBytes(settings.outOfCoreMaxMemory).toRawUTF8());
    logUnprefixed("  GPU headroom:    %s", headroom.toRawUTF8());
}

} // namespace

void printStartupSummary(const DaemonSettings& settings, uint32_t slaveVersion,
                         uint32_t numProvidedGpus)
{
    logUnprefixed("\n\nLaunching daemon with:");
    logUnprefixed("  slave path:    %s", settings.slaveExecutable.getFullPathName().toRawUTF8());
    logUnprefixed("  slave alias:   %s", settings.slaveAlias.toRawUTF8());
    logUnprefixed("  daemon port:   %d", settings.daemonPort);
    logUnprefixed("  GPU selection: %s", describeGpuSelection(settings.gpuIds).toRawUTF8());
    logUnprefixed("Slave information:");
    logUnprefixed("  version:       %u", slaveVersion);
    logUnprefixed("  provided GPUs: %u", numProvidedGpus);
    printOutOfCore(settings);
    logUnprefixed("%s", "");
}

} // namespace quelta
