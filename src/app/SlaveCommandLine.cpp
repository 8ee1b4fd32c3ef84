#include "app/SlaveProcess.h"
#include "messages/MasterAddress.h"

namespace quelta {

juce::String buildSlaveCommandLine(const DaemonSettings& settings, uint32_t masterAddress,
                                   uint16_t masterPort, uint16_t monitorPort, bool infoRequest)
{
    juce::String text;
    text << '"' << settings.slaveExecutable.getFileName() << '"' << " --net-master-address "
         << juce::String(formatIp(masterAddress)) << " --net-master-port "
         << static_cast<int>(masterPort) << " --daemon-port " << static_cast<int>(monitorPort)
         << " --alias \"" << settings.slaveAlias << '"';

    for (const auto id : settings.gpuIds)
        text << " -g " << (id - 1); // the slave counts from 0

    if (settings.outOfCoreMaxMemory != 0)
    {
        text << " --out-of-core " << settings.outOfCoreMaxMemory;

        if (settings.outOfCoreHeadroom != 0)
            text << ',' << settings.outOfCoreHeadroom;
    }

    if (infoRequest)
        text << " --daemon-info-request";

    return text;
}

} // namespace quelta
