#include "util/PeerConnection.h"

namespace quelta {

namespace {

constexpr int leavePollMs = 1;
constexpr uint32_t leaveTimeoutMs = 200; ///< A reader that is gone cannot leave.

} // namespace

PeerConnection::PeerConnection(uint32_t magicNumber) : InterprocessConnection(false, magicNumber) {}

bool PeerConnection::hasLivingReader(uint32_t now)
{
    const auto input = connectionSocket.look();
    return !watch.isDead({input.pending, input.bytesTaken, deliveries, delivering}, now);
}

void PeerConnection::connectionMade()
{
    // The only moment at which JUCE's socket is surely there: the reader has not started yet.
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

    disconnect(-1, notify);
    connectionSocket.detach();
    closing = false;
}

PeerConnection::Delivery::Delivery(PeerConnection& servedConnection) : connection(servedConnection)
{
    ++connection.deliveries;
    connection.delivering = true;
}

PeerConnection::Delivery::~Delivery()
{
    connection.delivering = false;

    // So that the reader does not go back to a socket that is about to be closed.
    if (connection.closing)
        juce::Thread::getCurrentThread()->signalThreadShouldExit();
}

} // namespace quelta
