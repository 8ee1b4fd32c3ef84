// The nodes of the console master on the network: where beacons for them go, and the listeners that
// their daemons connect to. Several nodes on one machine connect to different listeners, which is
// how they are told apart. Not thread-safe: the thread that calls ConsoleMaster::run() uses it.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <juce_core/juce_core.h>

#include "console_master/HostList.h"
#include "console_master/MasterListener.h"
#include "console_master/Options.h"

namespace quelta {

/** Identifies a node by the listener that it connects to and the address that it connects from. All
    addresses of this machine are treated as one. */
using MachineKey = std::pair<size_t, uint32_t>;

/** Where a beacon goes, and the address of this master in it. */
struct Target
{
    std::string name;
    uint32_t ip = 0;
    uint16_t port = 0;
    size_t listener = 0;
    MasterAddress self;
    bool unreachable = false; ///< Sending a beacon has failed and this has been reported.

    MachineKey getKey() const;
};

/** What a new list of nodes changes. */
struct TargetChanges
{
    std::vector<Target> added;
    std::vector<Target> removed;
};

class NodeTargets
{
public:
    /** All arguments must outlive this object. */
    NodeTargets(const Options& givenOptions, Inbox& eventInbox, std::ostream& errors);

    /** Finds the nodes of the options and opens the listeners. Returns false after reporting an
        error. */
    bool open();

    /** The named nodes. */
    const std::vector<Target>& getNodes() const { return nodes; }
    const std::optional<Target>& getBroadcast() const { return broadcast; }

    /** All addresses of this master. */
    std::set<MasterAddress> getAddresses() const;

    /** Replaces the named nodes. Changes nothing and returns nothing after reporting an error. */
    std::optional<TargetChanges> replaceNodes(const std::vector<NodeName>& wanted);

    /** Sends a beacon with this text to every node and to the broadcast address. */
    void sendBeacons(const std::string& text);

    /** Sends a record on a connection. A failure needs no handling: the connection is then lost. */
    void send(const ConnectionId& connection, const MasterDaemonMessage& message);

    static MachineKey keyOf(const PeerEvent& event);

private:
    void warnOfForeignAddress();
    std::optional<Target> find(const NodeName& node);
    size_t chooseListener(uint32_t machine, uint32_t announced);
    bool openListeners(std::vector<Target>& targets);
    bool openListener(const std::vector<const Target*>& users);
    void sendBeacon(Target& target, const std::string& text);

    const Options& options;
    Inbox& inbox;
    std::ostream& err;
    juce::DatagramSocket beaconSocket{true};

    struct Listener
    {
        uint32_t ip = 0; ///< 0 for every interface.
        std::unique_ptr<MasterListener> socket;
    };

    std::vector<Listener> listeners;
    std::vector<Target> nodes;
    std::optional<Target> broadcast;

    /** Nodes that have been removed. Their daemons stay connected, so they keep their listeners. */
    std::map<std::string, Target> formerNodes;

    /** The first listener that no node on a machine uses. */
    std::map<uint32_t, size_t> unusedListener;
};

} // namespace quelta
