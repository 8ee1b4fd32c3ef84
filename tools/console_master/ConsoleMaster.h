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
#include <vector>

#include "console_master/Display.h"
#include "console_master/FarmFeed.h"
#include "console_master/MasterListener.h"
#include "console_master/NodeBoard.h"
#include "console_master/NodeTargets.h"
#include "console_master/NodesFile.h"
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
    bool prepare();
    bool serve();
    void addNode(const Target& target);
    void rereadNodes();
    void applyNodes(const std::vector<NodeName>& nodes);

    void handle(const PeerEvent& event);
    void handleConnection(const PeerEvent& event);
    std::optional<size_t> findNode(const PeerEvent& event);

    void received(size_t node, const MasterDaemonMessage& message);
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
    NodeTargets targets;
    std::unique_ptr<FarmFeed> feed; ///< Null without a page to serve.
    NodesFileWatch nodesFileWatch;

    std::map<MachineKey, size_t> nodeOfMachine;
    std::map<ConnectionId, size_t> nodeOfConnection;
    std::map<size_t, ConnectionId> connectionOfNode;
    std::set<uint32_t> strangers; ///< Addresses of unexpected daemons that have been reported.

    uint32_t startedAt = 0;
    uint32_t beaconsSentAt = 0;
    uint32_t nodesReadAt = 0;
    bool broadcastChecked = false;
    bool released = false;
};

} // namespace quelta
