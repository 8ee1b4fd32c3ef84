// A JUCE connection that detects a dead reader thread, and that never closes its socket while the
// reader uses it.
//
// JUCE marks the reader as running before it starts the thread, ignores a failed start and swallows
// exceptions in the thread: isConnected() then stays true although the reader is dead. JUCE's
// disconnect() can also close the socket just before the reader waits on it, by which time the
// descriptor may belong to another socket.
//
// connectionMade runs before the reader starts; connectionLost and messageReceived run on the
// reader thread; the owner makes all other calls, from one thread at a time. Overrides of
// connectionMade and connectionLost have to call the base class.
#pragma once

#include <atomic>
#include <cstdint>

#include <juce_events/juce_events.h>

#include "platform/ConnectionSocket.h"
#include "util/ReaderWatch.h"

namespace quelta {

class PeerConnection : public juce::InterprocessConnection
{
public:
    /** Returns false once input has waited too long to be read. Does not read from the socket.
        `now` is in milliseconds. To be called every few hundred milliseconds. */
    bool hasLivingReader(uint32_t now);

    void connectionMade() override;
    void connectionLost() override;

protected:
    explicit PeerConnection(uint32_t magicNumber);

    /** Shuts the connection down, lets the reader leave, then closes the socket. If the reader is
        in messageReceived, asks it to exit and joins it. Derived classes call this in their
        destructors. */
    void close(Notify notify);

    /** Whether the owner, rather than the peer, is closing the connection. */
    bool isClosing() const { return closing; }

    /** Marks the reader as busy while it exists: a local variable of messageReceived. */
    class Delivery
    {
    public:
        explicit Delivery(PeerConnection& busyConnection);
        ~Delivery();

        Delivery(const Delivery&) = delete;
        Delivery& operator=(const Delivery&) = delete;

    private:
        PeerConnection& connection;
    };

private:
    platform::ConnectionSocket connectionSocket;
    ReaderWatch watch;
    std::atomic<uint64_t> deliveries{0};
    std::atomic<bool> delivering{false};
    std::atomic<bool> closing{false};
};

} // namespace quelta
