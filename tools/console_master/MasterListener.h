// The master's end of the connections: daemons connect to it and their records go into an inbox.
#pragma once

#include <atomic>
#include <chrono>
#include <compare>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include <juce_events/juce_events.h>

#include "messages/MasterDaemonMessage.h"

namespace quelta {

/** Names a connection for good; numbers are not used twice. */
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
        record, ///< `message` is set.
        junk,   ///< Bytes that are no record.
        lost
    };

    Kind kind = Kind::lost;
    ConnectionId connection;
    uint32_t peerIp = 0;
    MasterDaemonMessage message;
};

/** The road from the threads of all connections to the one thread that thinks. Any thread pushes,
    one takes; the lock guards the events. */
class Inbox
{
public:
    void push(PeerEvent event);

    /** All events so far, in order; waits up to `limit` for the first. */
    std::vector<PeerEvent> take(std::chrono::milliseconds limit);

private:
    std::mutex mutex;
    std::condition_variable arrival;
    std::vector<PeerEvent> events;
};

/** Listens on one port. The owner's thread opens, sends and destroys; the server's thread accepts;
    the lock guards the connections. */
class MasterListener final : private juce::InterprocessConnectionServer
{
public:
    /** `index` is written into every event. The inbox has to outlive the listener. */
    MasterListener(size_t index, Inbox& inbox);
    ~MasterListener() override;

    /** Listens on `port`, 0 for any free one, of the local address `ip`, 0 for all. */
    bool open(uint32_t ip, uint16_t port);

    /** The port it listens on. */
    uint16_t getPort() const;

    /** Sends a record; false if the connection is gone. */
    bool send(uint64_t connectionNumber, const MasterDaemonMessage& message);

private:
    class Connection;

    juce::InterprocessConnection* createConnectionObject() override;

    const size_t listenerIndex;
    Inbox& inbox;
    juce::String boundAddress;

    std::atomic<bool> stopping{false};
    juce::WaitableEvent leaving;

    std::mutex mutex;
    uint64_t lastNumber = 0;
    std::map<uint64_t, std::unique_ptr<Connection>> connections;
};

} // namespace quelta
