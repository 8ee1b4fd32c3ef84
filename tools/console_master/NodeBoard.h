// What the master knows of each node, what it asks of it next and what it tells the operator.
// Decisions only: no clock, no sockets, no threads; the caller tells what happened and when,
// carries out the requests and shows the events. One thread uses it.
//
// Phases of a node, and what leads on (every other event changes nothing but what is known of the
// node):
//
//   waiting    no state heard yet        state heard: ended (scan), watching (watch), asked (others)
//   asked      request sent              its reply: starting, or ended when refused, or by stop
//   starting   slave is ours             running; failed: releasing; another owner: ended
//   running    slave is ours and works   failed: releasing; another owner: ended
//              (starting, running and watching report a node that is back after a disconnection as found)
//   watching   until told to end         told to end: ended
//   releasing  stop request sent         its reply: ended
//   ended      nothing more is asked
//
// No answer in time ends waiting, asked and releasing, the last one even if the node connects
// again; a connection that does not come back in time ends starting and running; a new connection
// leads from asked to waiting.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "console_master/Options.h"
#include "messages/MasterDaemonMessage.h"

namespace quelta {

enum class NodePhase
{
    waiting,
    asked,
    starting,
    running,
    watching,
    releasing,
    ended
};

struct Node
{
    std::string name;
    MasterAddress self; ///< The address by which this node knows this master.
    NodePhase phase = NodePhase::waiting;
    bool connected = false;
    bool asAsked = true; ///< False once something went otherwise than the operator asked.
    bool silent = false; ///< Has not answered in time, and has been reported for it.
    bool away = false;   ///< Has been reported as disconnected and has not told its state since.
    std::optional<MasterDaemonMessage> state; ///< The latest record.
    bool slaveFailed = false;

    uint32_t since = 0;      ///< When it entered its phase, or connected, or was disconnected.
    uint32_t releasedAt = 0; ///< When it was first asked to stop.
    uint32_t scannedAt = 0;
    bool scanPending = false;

    bool isOwned() const
    {
        return state && state->masterAddress.ip != 0 && state->masterAddress.port != 0;
    }
    bool isOurs() const { return state && state->masterAddress == self; }
};

enum class NodeEvent
{
    found,
    changed,
    starting,
    running,
    failed,
    stopped,
    refused,
    stolen,
    lost,
    disconnected,
    noAnswer,
    silent,
    invalidRecord
};

class NodeBoard
{
public:
    /** The daemon may need 12 s to stop a slave, and answers nobody meanwhile. */
    static constexpr uint32_t stopAllowance = 15000;
    static constexpr uint32_t scanInterval = 1000;

    NodeBoard(Command command, uint32_t timeoutMs);

    /** Gives the node's index. */
    size_t addNode(const std::string& name, const MasterAddress& self, uint32_t now);

    void connected(size_t index, uint32_t now);
    void disconnected(size_t index, uint32_t now);
    void received(size_t index, const MasterDaemonMessage& message, uint32_t now);
    void receivedJunk(size_t index);

    /** Time passes. */
    void tick(uint32_t now);

    /** The operator has seen enough: whatever is held is given back. */
    void release(uint32_t now);

    /** How many nodes are being given back, and how many milliseconds that takes at most. */
    size_t countReleasing() const;
    uint32_t releaseLimit() const { return timeoutMs + stopAllowance; }

    /** Whether nothing more is to come. */
    bool isDone() const;

    /** Whether every node did as asked. */
    bool isAsAsked() const;

    const std::vector<Node>& getNodes() const { return nodes; }

    struct Request
    {
        size_t node = 0;
        MasterMessageType type = MasterMessageType::SCAN_REQUEST;
    };

    struct Event
    {
        size_t node = 0;
        NodeEvent kind = NodeEvent::found;
    };

    /** What is to be sent and shown since the last call, in order. */
    std::vector<Request> takeRequests() { return std::exchange(requests, {}); }
    std::vector<Event> takeEvents() { return std::exchange(events, {}); }

private:
    void begin(size_t index, uint32_t now);
    void settle(size_t index, uint32_t now);
    void checkHeld(size_t index, MasterMessageType type, bool isBack, uint32_t now);
    void tickNode(size_t index, uint32_t now);
    void keepScanning(size_t index, uint32_t now);
    void releaseNode(size_t index, uint32_t now);

    void enter(size_t index, NodePhase phase, uint32_t now);
    void end(size_t index, NodeEvent event, bool asAsked);
    void scan(size_t index, uint32_t now);
    void request(size_t index, MasterMessageType type) { requests.push_back({index, type}); }
    void report(size_t index, NodeEvent kind) { events.push_back({index, kind}); }
    uint32_t replyLimit(const Node& node) const;

    const Command command;
    const uint32_t timeoutMs;
    std::vector<Node> nodes;
    std::vector<Request> requests;
    std::vector<Event> events;
};

} // namespace quelta
