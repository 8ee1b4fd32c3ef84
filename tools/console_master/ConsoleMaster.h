// The master at work: beacons out, connections in, the node board in the middle, lines to the
// operator.
//
// `run` does everything on the caller's thread; the listeners' threads only fill the inbox.
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

#include "console_master/MasterListener.h"
#include "console_master/NodeBoard.h"
#include "console_master/Options.h"
#include "console_master/StopRequest.h"

namespace quelta {

class ConsoleMaster
{
public:
    ConsoleMaster(const Options& options, std::ostream& out, std::ostream& err,
                  const StopRequest& stopRequest);

    /** Does what the options ask for and gives the exit status. */
    int run();

private:
    /** Where a beacon goes and what it says. */
    struct Target
    {
        std::string name;
        uint32_t ip = 0;
        uint16_t port = 0;
        size_t listener = 0;
        MasterAddress self;
        bool unreachable = false; ///< Sending failed, and the operator knows.
    };

    /** A machine is known by the listener to which it connects and the address from which it
        does. */
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
    void judgeBroadcast();
    void showEvents();
    void showLine(const std::string& line);
    void showListening();
    void showResult();
    bool isFinished() const;
    int exitStatus() const;
    MasterDaemonMessage message(MasterMessageType type, const MasterAddress& self) const;

    const Options& options;
    std::ostream& out;
    std::ostream& err;
    const StopRequest& stopRequest;

    NodeBoard board;
    Inbox inbox;
    juce::DatagramSocket beaconSocket{true};
    std::vector<std::unique_ptr<MasterListener>> listeners;

    std::vector<Target> targets; ///< One a node, in its order, then the broadcast.
    std::map<MachineKey, size_t> nodeOfMachine;
    std::map<ConnectionId, size_t> nodeOfConnection;
    std::map<size_t, ConnectionId> connectionOfNode;
    std::set<uint32_t> strangers; ///< Addresses of uninvited daemons that the operator knows of.

    uint32_t startedAt = 0;
    uint32_t beaconsSentAt = 0;
    uint32_t lastEventAt = 0;
    bool tableIsOld = false;
    bool broadcastJudged = false;
    bool released = false;
};

} // namespace quelta
