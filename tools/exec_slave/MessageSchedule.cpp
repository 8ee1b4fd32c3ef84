#include "exec_slave/MessageSchedule.h"

#include <algorithm>

namespace quelta::execslave {

void MessageSchedule::announce(uint32_t version, uint32_t numGpus)
{
    info.type = SlaveMessageType::SLAVE_INFO;
    info.slaveVersion = version;
    info.numGpus = numGpus;
    stage = Stage::announcing;
}

std::optional<SlaveDaemonMessage> MessageSchedule::take(std::chrono::milliseconds now)
{
    if (timeToNext(now) != std::chrono::milliseconds::zero())
        return std::nullopt;

    lastSent = now;
    SlaveDaemonMessage message;

    if (stage == Stage::announcing)
        message = info;
    else if (stage == Stage::announced)
        message.type = SlaveMessageType::SLAVE_STATUS;

    if (stage == Stage::announcing)
        stage = Stage::announced;

    return message;
}

std::optional<std::chrono::milliseconds> MessageSchedule::timeToNext(
    std::chrono::milliseconds now) const
{
    if (stage == Stage::announcing || !lastSent)
        return std::chrono::milliseconds::zero();

    if (stage == Stage::announced && !alive)
        return std::nullopt;

    return std::max(*lastSent + interval - now, std::chrono::milliseconds::zero());
}

} // namespace quelta::execslave
