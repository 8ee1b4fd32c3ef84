// The masters that have been heard of, in the order of their addresses, each with its connection:
// who is known, who is connected, whom to try next.
//
// It caps what forged beacons can consume: the number of masters, the time of a tick that goes to
// attempts that fail, and the file descriptors, of which some are kept for the slave, its monitor
// and the log.
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

/** Where the registry learns about its surroundings; tests replace it. */
struct RegistrySurroundings
{
    RegistrySurroundings();

    std::function<int()> countFreeDescriptors;
    std::function<bool()> quitWasRequested;
    std::function<uint32_t()> getMilliseconds;
};

class MasterRegistry
{
public:
    static constexpr size_t maxMasters = 10'000; ///< Far more than any network has.
    static constexpr int descriptorReserve = 16; ///< No master but the owner gets one of these.
    static constexpr uint32_t failedAttemptsBudgetMs =
        1'000; ///< Per tick, so that requests are served in between.

    explicit MasterRegistry(RegistrySurroundings registrySurroundings = {});

    size_t size() const { return links.size(); }
    bool isEmpty() const { return links.empty(); }
    bool isFull() const { return links.size() >= maxMasters; }
    bool contains(const MasterAddress& address) const { return links.contains(address); }

    /** Whether this very link is registered, and not one that has taken its address since. */
    bool contains(const MasterLink& link) const;

    /** Registers a link whose address is not known yet. */
    void add(std::unique_ptr<MasterLink> link);

    /** Unregisters a known master. */
    std::unique_ptr<MasterLink> remove(const MasterAddress& address);

    /** The link with the lowest address; there must be one. */
    MasterLink& getFirst() const { return *links.begin()->second; }

    /** Replaces nothing yet, but marks the links whose readers are gone. */
    void dropDeafLinks();

    /** Connects those that are not connected and returns those that could not be reached. Stops
        once the budget is spent; the next call then goes on behind the last one tried. `owner`,
        which may be null, may use the reserve: a healthy slave must not be stopped for the lack of
        a descriptor. */
    std::vector<MasterAddress> connect(const MasterLink* owner);

    /** Sends to all, connected or not, in the order of their addresses. */
    void broadcast(const MasterDaemonMessage::Bytes& record) const;

private:
    bool connectWithReserve(MasterLink& link, bool mayUseReserve,
                            std::optional<int>& freeDescriptors);

    const RegistrySurroundings surroundings;
    std::map<MasterAddress, std::unique_ptr<MasterLink>> links;
    std::optional<MasterAddress> lastTried; ///< Where a call broke off that had spent its budget.
    bool descriptorsAreScarce = false;      ///< Only the reserve is left, which has been logged.
};

} // namespace quelta
