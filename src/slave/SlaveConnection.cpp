#include "slave/SlaveConnection.h"

#include "log/Log.h"
#include "messages/Framing.h"

namespace quelta {

SlaveMonitor::SlaveConnection::SlaveConnection(SlaveMonitor& owningMonitor)
    : InterprocessConnection(false, frameMagic), monitor(owningMonitor)
{}

SlaveMonitor::SlaveConnection::~SlaveConnection()
{
    disconnect(); // here, because the callbacks end with this class
}

void SlaveMonitor::SlaveConnection::connectionMade()
{
    QUELTA_LOG_DAEMON("slave connection established");
    monitor.startMonitoring();
}

void SlaveMonitor::SlaveConnection::connectionLost()
{
    QUELTA_LOG_DAEMON("slave connection closed");
    monitor.stopMonitoring();
}

void SlaveMonitor::SlaveConnection::messageReceived(const juce::MemoryBlock& payload)
{
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
