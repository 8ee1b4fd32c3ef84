// Runs one command of the console master: sends beacons, passes what arrives on connections to the
// node board, carries out the board's requests and prints its events.
//
// Everything runs on the thread that calls run(). The listeners' threads only fill the inbox.
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

#include "console_master/Display.h"
#include "console_master/MasterListener.h"
#include "console_master/NodeBoard.h"
#include "console_master/Options.h"
#include "console_master/StopRequest.h"

namespace quelta {

class ConsoleMaster
{
public:
    /** All arguments must outlive the console master. */
    ConsoleMaster(const Options& givenOptions, std::ostream& output, std::ostream& errors,
                  const StopRequest& givenStopRequest);

    /** Runs the command of the options to its end and returns the exit status. */
    int run();

private:
    /** Where a beacon goes, and the address of this master in it. */
    struct Target
    {
        std::string name;
        uint32_t ip = 0;
        uint16_t port = 0;
        size_t listener = 0;
        MasterAddress self;
        bool unreachable = false; ///< Sending a beacon has failed and this has been reported.
    };

    /** Identifies a node by the listener that it connects to and the address that it connects
        from. */
    using MachineKey = std::pair<size_t, uint32_t>;

    bool prepare();
    void warnOfForeignAddress();
    bool addTarget(const NodeName& node, std::map<uint32_t, size_t>& nodesOnMachine);
    bool openListeners();
    void addNodes();

    void handle(const PeerEvent& event);
    void handleConnection(const PeerEvent& event);
    std::optional<size_t> findNode(const PeerEvent& event);

    void sendBeacons();
    void release();
    void carryOut();
    void reportUnansweredBroadcast();
    void showEvents();
    void showListening();
    bool isFinished() const;
    int exitStatus() const;
    MasterDaemonMessage message(MasterMessageType type, const MasterAddress& self) const;

    const Options& options;
    std::ostream& out;
    std::ostream& err;
    const StopRequest& stopRequest;

    NodeBoard board;
    Display display;
    Inbox inbox;
    juce::DatagramSocket beaconSocket{true};
    std::vector<std::unique_ptr<MasterListener>> listeners;

    std::vector<Target> targets; ///< One for each node of the options, then the broadcast.
    std::map<MachineKey, size_t> nodeOfMachine;
    std::map<ConnectionId, size_t> nodeOfConnection;
    std::map<size_t, ConnectionId> connectionOfNode;
    std::set<uint32_t> strangers; ///< Addresses of unexpected daemons that have been reported.

    uint32_t startedAt = 0;
    uint32_t beaconsSentAt = 0;
    bool broadcastChecked = false;
    bool released = false;
};

} // namespace quelta
