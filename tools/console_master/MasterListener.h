// The console master's end of the connections: daemons connect to a listener, and what they send
// goes into an inbox.
#pragma once

#include <chrono>
#include <compare>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "messages/MasterDaemonMessage.h"

namespace quelta {

/** Identifies a connection. Numbers are not reused. */
struct ConnectionId
{
    size_t listener = 0;
    uint64_t number = 0;

    auto operator<=>(const ConnectionId&) const = default;
};

/** Something that happened on a connection. */
struct PeerEvent
{
    enum class Kind
    {
        connected,
        record, ///< A valid record, in `message`.
        junk,   ///< A frame whose payload is not a valid record.
        lost
    };

    Kind kind = Kind::lost;
    ConnectionId connection;
    uint32_t peerIp = 0;
    MasterDaemonMessage message;
};

/** Passes events from the connections' threads to the main loop. Any thread pushes, one thread
    takes. The lock guards the events. */
class Inbox
{
public:
    void push(PeerEvent event);

    /** Removes and returns all events, oldest first. Waits up to `timeout` for the first one. */
    std::vector<PeerEvent> take(std::chrono::milliseconds timeout);

private:
    std::mutex mutex;
    std::condition_variable arrival;
    std::vector<PeerEvent> events;
};

/** Listens on one port. One thread accepts and reads all connections, because a farm may have a
    thousand. The owner's thread opens, sends and destroys. The lock guards the connections. */
class MasterListener final
{
public:
    /** Every event carries `index` as its listener. The inbox must outlive the listener. */
    MasterListener(size_t index, Inbox& eventInbox);

    /** Stops listening and closes all connections. */
    ~MasterListener();

    /** Listens on `port` (0: any free port) of the local address `ip` (0: every interface). Returns
        false if the port is not available; it may then be called again. */
    bool open(uint32_t ip, uint16_t port);

    /** The port that it listens on. */
    uint16_t getPort() const;

    /** Sends a record. Returns false if the connection is lost. */
    bool send(uint64_t connectionNumber, const MasterDaemonMessage& message);

private:
    class Connection;
    class Service;

    const std::unique_ptr<Service> service;
};

} // namespace quelta
