#include "util/PeerConnection.h"

namespace quelta {

namespace {

constexpr int leavePollMs = 1;
constexpr uint32_t leaveTimeoutMs = 200; ///< A dead reader never leaves.

} // namespace

PeerConnection::PeerConnection(uint32_t magicNumber) : InterprocessConnection(false, magicNumber) {}

bool PeerConnection::hasLivingReader(uint32_t now)
{
    const auto input = connectionSocket.look();
    return !watch.isDead({input.pending, input.bytesTaken, deliveries, delivering}, now);
}

void PeerConnection::connectionMade()
{
    // JUCE's socket exists for certain only here, before the reader starts.
    connectionSocket.attach(getSocket()->getRawSocketHandle());
    watch.reset();
}

void PeerConnection::connectionLost()
{
    connectionSocket.detach();
}

void PeerConnection::close(Notify notify)
{
    closing = true;

    if (connectionSocket.shutDown())
    {
        const auto began = juce::Time::getMillisecondCounter();

        while (isConnected() && !delivering &&
               juce::Time::getMillisecondCounter() - began < leaveTimeoutMs)
            juce::Thread::sleep(leavePollMs);
    }

    // A reader in the middle of a frame may not notice the shutdown. Closing the last handle wakes
    // it, so the second view has to go first.
    connectionSocket.detach();
    disconnect(-1, notify);
    closing = false;
}

PeerConnection::Delivery::Delivery(PeerConnection& busyConnection) : connection(busyConnection)
{
    ++connection.deliveries;
    connection.delivering = true;
}

PeerConnection::Delivery::~Delivery()
{
    connection.delivering = false;

    // Keeps the reader from returning to a socket that is about to be closed.
    if (connection.closing)
        juce::Thread::getCurrentThread()->signalThreadShouldExit();
}

} // namespace quelta
