#include "master/ReplacedSlaves.h"

#include <algorithm>

namespace quelta {

void ReplacedSlaves::add(std::unique_ptr<SlaveProcess> slave)
{
    removeEnded();
    slaves.push_back(std::move(slave));

    if (slaves.size() <= maxSlaves)
        return;

    slaves.front()->signalThreadShouldExit();
    slaves.front()->waitForThreadToExit(-1);
    slaves.erase(slaves.begin());
}

bool ReplacedSlaves::contains(const juce::Thread* thread) const
{
    return std::any_of(slaves.begin(), slaves.end(),
                       [thread](const auto& slave) { return slave.get() == thread; });
}

void ReplacedSlaves::removeEnded()
{
    slaves.erase(std::remove_if(slaves.begin(), slaves.end(),
                                [](const auto& slave) { return !slave->isThreadRunning(); }),
                 slaves.end());
}

void ReplacedSlaves::signalAll()
{
    for (const auto& slave : slaves)
        slave->signalThreadShouldExit();
}

void ReplacedSlaves::waitForAll()
{
    for (const auto& slave : slaves)
        slave->waitForThreadToExit(-1);

    slaves.clear();
}

} // namespace quelta
