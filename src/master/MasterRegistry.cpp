#include "master/MasterRegistry.h"

#include <utility>

#include <juce_core/juce_core.h>

#include "log/Log.h"
#include "platform/Process.h"
#include "platform/QuitSignals.h"

namespace quelta {

RegistryEnvironment::RegistryEnvironment()
    : countFreeDescriptors(platform::countFreeDescriptors),
      quitWasRequested(platform::quitWasRequested),
      getMilliseconds(juce::Time::getMillisecondCounter)
{}

MasterRegistry::MasterRegistry(RegistryEnvironment registryEnvironment)
    : environment(std::move(registryEnvironment))
{}

bool MasterRegistry::contains(const MasterLink& link) const
{
    const auto entry = links.find(link.getAddress());
    return entry != links.end() && entry->second.get() == &link;
}

void MasterRegistry::add(std::unique_ptr<MasterLink> link)
{
    const auto address = link->getAddress();
    links.emplace(address, std::move(link));
}

std::unique_ptr<MasterLink> MasterRegistry::remove(const MasterAddress& address)
{
    auto node = links.extract(address);
    return std::move(node.mapped());
}

void MasterRegistry::markDeafLinks()
{
    const auto now = environment.getMilliseconds();

    for (const auto& [address, link] : links)
        link->markIfDeaf(now);
}

std::vector<MasterAddress> MasterRegistry::connect(const MasterLink* owner)
{
    std::vector<MasterAddress> unreachable;
    std::optional<int> freeDescriptors;
    uint32_t spentMs = 0;
    auto entry = lastTried ? links.upper_bound(*lastTried) : links.begin();
    lastTried.reset();

    for (auto remaining = links.size(); remaining > 0; --remaining, ++entry)
    {
        if (entry == links.end())
            entry = links.begin();

        if (entry->second->isUsable())
            continue;

        if (environment.quitWasRequested())
            break;

        const auto started = environment.getMilliseconds();

        const auto reserve = entry->second.get() == owner ? Reserve::use : Reserve::keep;

        if (!connectLink(*entry->second, reserve, freeDescriptors))
        {
            unreachable.push_back(entry->first);
            spentMs += environment.getMilliseconds() - started;
        }

        if (spentMs >= failedAttemptsBudgetMs)
        {
            lastTried = entry->first;
            break;
        }
    }

    return unreachable;
}

/** The first attempt of a connect() counts `freeDescriptors`; each attempt keeps it up to date. */
bool MasterRegistry::connectLink(MasterLink& link, Reserve reserve,
                                 std::optional<int>& freeDescriptors)
{
    if (!freeDescriptors)
        freeDescriptors = environment.countFreeDescriptors();

    if (reserve == Reserve::keep && *freeDescriptors <= descriptorReserve)
    {
        if (!std::exchange(descriptorsAreScarce, true))
            logError(
                "only %d file descriptors left: no more masters are connected until some are free",
                *freeDescriptors);

        QUELTA_LOG_DAEMON("not connecting to master %s: only %d file descriptors left",
                          formatAddress(link.getAddress()).c_str(), *freeDescriptors);
        return false;
    }

    if (!link.connectToMaster())
        return false;

    if (*freeDescriptors > descriptorReserve)
        descriptorsAreScarce = false;

    --*freeDescriptors;
    return true;
}

void MasterRegistry::broadcast(const MasterDaemonMessage::Bytes& record) const
{
    for (const auto& [address, link] : links)
        link->send(record);
}

} // namespace quelta
