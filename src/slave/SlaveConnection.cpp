#include "slave/SlaveConnection.h"

#include "log/Log.h"
#include "messages/Framing.h"

namespace quelta {

SlaveMonitor::SlaveConnection::SlaveConnection(SlaveMonitor& owningMonitor)
    : PeerConnection(frameMagic), monitor(owningMonitor)
{}

SlaveMonitor::SlaveConnection::~SlaveConnection()
{
    close(Notify::no);
}

void SlaveMonitor::SlaveConnection::connectionMade()
{
    PeerConnection::connectionMade();
    QUELTA_LOG_DAEMON("slave connection established");
    monitor.startMonitoring();
}

void SlaveMonitor::SlaveConnection::connectionLost()
{
    PeerConnection::connectionLost();

    // Not logged if the monitor closes the connection: the monitor's owner logs why it ends.
    if (isClosing())
        return;

    QUELTA_LOG_DAEMON("slave connection closed");
    monitor.stopMonitoring();
}

void SlaveMonitor::SlaveConnection::messageReceived(const juce::MemoryBlock& payload)
{
    const Delivery delivery(*this);
    SlaveDaemonMessage message;

    if (!SlaveDaemonMessage::fromData(payload.getData(), payload.getSize(), message))
    {
        logError("received invalid message from slave");
        return;
    }

    QUELTA_LOG_DAEMON_DETAIL("received heartbeat message '%s' from slave",
                             SlaveDaemonMessage::getTypeName(message.type));
    monitor.handleMessage(message);
}

} // namespace quelta
