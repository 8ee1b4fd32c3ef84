// The console master's decisions: what it knows of each node, what it asks of it next and what it
// reports to the operator. No clock, no sockets, no threads: the caller says what happened and
// when, carries out the requests and prints the events. Not thread-safe.
//
// The phases of a node and their transitions. Any other event only updates what is known of the
// node.
//
//   phase      meaning                      transitions
//   waiting    no state received yet        state: ended (scan), watching (watch and serve), asked
//                                           (others)
//   asked      request sent                 reply: starting; ended if refused, and for stop
//   starting   the slave is ours            running: running; failed: releasing; other owner: ended
//   running    the slave is ours and works  failed: releasing; other owner: ended
//   watching   scanned until released       release: ended
//   releasing  stop request sent            reply: ended
//   ended      no more requests
//
// Time-outs: waiting, asked and releasing end without an answer in time (releasing also if the node
// keeps reconnecting); starting and running end if a lost connection does not come back in time.
// A new connection leads from asked back to waiting. In starting, running and watching, a node that
// is back after a disconnection is reported as found. Removing a node ends it; restoring it leads
// back to waiting.
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
    bool asAsked = true; ///< False once the node has not done what the operator asked.
    bool silent = false; ///< Has not answered in time and has been reported.
    bool away = false;   ///< Reported as disconnected; no state received since.
    std::optional<MasterDaemonMessage> state; ///< The latest record.
    bool slaveFailed = false;

    uint32_t since = 0;      ///< When the phase began, or the connection was made or lost.
    uint32_t releasedAt = 0; ///< When the phase releasing began.
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
    /** A daemon may take 12 s to stop a slave and does not answer until then. */
    static constexpr uint32_t stopAllowanceMs = 15000;
    static constexpr uint32_t scanIntervalMs = 1000;

    NodeBoard(Command givenCommand, uint32_t givenTimeoutMs);

    /** Returns the node's index. */
    size_t addNode(const std::string& name, const MasterAddress& self, uint32_t now);

    void connected(size_t index, uint32_t now);
    void disconnected(size_t index, uint32_t now);
    void received(size_t index, const MasterDaemonMessage& message, uint32_t now);
    void receivedJunk(size_t index);

    /** Applies time-outs and schedules scans. Call it several times a second. */
    void tick(uint32_t now);

    /** Stops asking a node; restoreNode() begins anew. */
    void removeNode(size_t index);
    void restoreNode(size_t index, uint32_t now);

    /** Ends the command at the operator's request: gives held nodes back. */
    void release(uint32_t now);

    /** The number of nodes that are being given back, and the time limit for that. */
    size_t countReleasing() const;
    uint32_t releaseTimeoutMs() const { return timeoutMs + stopAllowanceMs; }

    /** Whether all nodes have ended. */
    bool isDone() const;

    /** Whether every node has done what the operator asked. */
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

    /** The requests to send and the events to print since the last call, in order. */
    std::vector<Request> takeRequests() { return std::exchange(requests, {}); }
    std::vector<Event> takeEvents() { return std::exchange(events, {}); }

private:
    /** Whether a node that sends was away before. */
    enum class Presence
    {
        stayed,
        back
    };

    /** Whether a node that ends has done what the operator asked. */
    enum class Outcome
    {
        asAsked,
        notAsAsked
    };

    void begin(size_t index, uint32_t now);
    void settle(size_t index, uint32_t now);
    void checkHeld(size_t index, MasterMessageType type, Presence presence, uint32_t now);
    void tickNode(size_t index, uint32_t now);
    void keepScanning(size_t index, uint32_t now);
    void releaseNode(size_t index, uint32_t now);

    void enter(size_t index, NodePhase phase, uint32_t now);
    void end(size_t index, NodeEvent event, Outcome outcome);
    void scan(size_t index, uint32_t now);
    void request(size_t index, MasterMessageType type) { requests.push_back({index, type}); }
    void report(size_t index, NodeEvent kind) { events.push_back({index, kind}); }
    uint32_t replyTimeoutMs(const Node& node) const;
    bool isWatch() const { return command == Command::watch || command == Command::serve; }

    const Command command;
    const uint32_t timeoutMs;
    std::vector<Node> nodes;
    std::vector<Request> requests;
    std::vector<Event> events;
};

} // namespace quelta
