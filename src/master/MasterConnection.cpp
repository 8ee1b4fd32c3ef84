#include "master/MasterConnection.h"

#include "log/Log.h"
#include "messages/Framing.h"
#include "platform/Sockets.h"

namespace quelta {

namespace {

constexpr int connectTimeoutMs = 1000;

} // namespace

DaemonNetworkThread::MasterConnection::MasterConnection(const MasterAddress& masterAddress,
                                                        DaemonNetworkThread& owningThread)
    : InterprocessConnection(false, frameMagic), address(masterAddress), owner(owningThread)
{}

DaemonNetworkThread::MasterConnection::~MasterConnection()
{
    disconnect();
}

bool DaemonNetworkThread::MasterConnection::connectToMaster()
{
    sendFellShort = false;
    return connectToSocket(formatIp(address.ip), address.port, connectTimeoutMs);
}

void DaemonNetworkThread::MasterConnection::send(const MasterDaemonMessage::Bytes& record)
{
    if (!sendFellShort)
        sendFellShort = !sendMessage(juce::MemoryBlock(record.data(), record.size()));
}

void DaemonNetworkThread::MasterConnection::connectionMade()
{
    // The only moment at which the socket is surely there: the connection's thread has not started yet.
    platform::prepareMasterSocket(getSocket()->getRawSocketHandle());
    QUELTA_LOG_DAEMON("connected to master %s", formatAddress(address).c_str());
}

void DaemonNetworkThread::MasterConnection::connectionLost()
{
    QUELTA_LOG_DAEMON("disconnected from master %s", formatAddress(address).c_str());
}

void DaemonNetworkThread::MasterConnection::messageReceived(const juce::MemoryBlock& payload)
{
    MasterDaemonMessage message;

    if (parseMasterMessage(payload.getData(), payload.getSize(), message))
        owner.handleRequest(message, *this);
}

} // namespace quelta
