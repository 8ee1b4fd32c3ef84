// A JUCE connection that knows whether its reader thread still reads, and that never closes its
// socket under that thread.
//
// JUCE marks the reader as running before it starts the thread, ignores a refused start and
// swallows exceptions in the thread: isConnected() then stays true although nobody reads. And
// JUCE's disconnect() may close the socket while the reader begins to wait on it, when the number
// can belong to another socket already.
//
// connectionMade runs before the reader starts; connectionLost and messageReceived run on the
// reader; everything else is called by the owner, one thread at a time. Overrides of the first two
// call those here.
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
    /** Looks at the socket without reading from it. Returns false once input has waited in vain for
        too long; `now` is in milliseconds. To be called every few hundred milliseconds. */
    bool hasLivingReader(uint32_t now);

    void connectionMade() override;
    void connectionLost() override;

protected:
    explicit PeerConnection(uint32_t magicNumber);

    /** Ends the connection: shuts it down, lets the reader leave, then closes. A reader in
        messageReceived is asked to exit and waited for. Derived classes call it in their
        destructors. */
    void close(Notify notify);

    /** Whether the owner is ending the connection, rather than the peer. */
    bool isClosing() const { return closing; }

    /** Lives on the reader's stack while a message is being served. */
    class Delivery
    {
    public:
        explicit Delivery(PeerConnection& servedConnection);
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
