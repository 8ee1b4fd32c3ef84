// The known masters in the order of their addresses, each with its connection. Decides which master
// to connect to next.
//
// Caps what forged beacons can consume: the number of masters, the time per tick spent on failing
// attempts, and the file descriptors, some of which are reserved for the slave, its monitor and the
// log.
//
// Every call is made under the DaemonNetworkThread's lock.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "master/MasterLink.h"

namespace quelta {

/** The system calls on which the registry depends; tests replace them. */
struct RegistryEnvironment
{
    RegistryEnvironment();

    std::function<int()> countFreeDescriptors;
    std::function<bool()> quitWasRequested;
    std::function<uint32_t()> getMilliseconds;
};

class MasterRegistry
{
public:
    static constexpr size_t maxMasters = 10'000; ///< Far more than any network has.
    static constexpr int descriptorReserve = 16; ///< Of all masters only the owner may use it.

    /** Per tick, so that requests are served between ticks. */
    static constexpr uint32_t failedAttemptsBudgetMs = 1'000;

    explicit MasterRegistry(RegistryEnvironment registryEnvironment = {});

    size_t size() const { return links.size(); }
    bool isEmpty() const { return links.empty(); }
    bool isFull() const { return links.size() >= maxMasters; }
    bool contains(const MasterAddress& address) const { return links.contains(address); }

    /** Whether this very link is registered, rather than a later one with the same address. */
    bool contains(const MasterLink& link) const;

    /** Registers a link. Its address must not be registered yet. */
    void add(std::unique_ptr<MasterLink> link);

    /** Unregisters a known master and returns its link. */
    std::unique_ptr<MasterLink> remove(const MasterAddress& address);

    /** The link with the lowest address. The registry must not be empty. */
    MasterLink& getFirst() const { return *links.begin()->second; }

    /** Marks links with dead readers as unusable; connect() then reconnects them. */
    void markDeafLinks();

    /** Connects the links that are not usable, and returns the addresses of those that failed.
        Stops when the budget is spent; the next call resumes after the last link tried. `owner`,
        which may be null, may use the reserve: lack of a descriptor must not stop a healthy
        slave. */
    std::vector<MasterAddress> connect(const MasterLink* owner);

    /** Sends to all links, connected or not, in the order of their addresses. */
    void broadcast(const MasterDaemonMessage::Bytes& record) const;

private:
    enum class Reserve
    {
        keep,
        use
    };

    bool connectLink(MasterLink& link, Reserve reserve, std::optional<int>& freeDescriptors);

    const RegistryEnvironment environment;
    std::map<MasterAddress, std::unique_ptr<MasterLink>> links;
    std::optional<MasterAddress> lastTried; ///< By a connect() that has spent its budget.
    bool descriptorsAreScarce = false;      ///< Only the reserve is left; logged once.
};

} // namespace quelta
