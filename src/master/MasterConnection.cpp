#include "master/MasterConnection.h"

#include "log/Log.h"
#include "messages/Framing.h"
#include "platform/Sockets.h"
#include "util/Timing.h"

namespace quelta {

DaemonNetworkThread::MasterConnection::MasterConnection(const MasterAddress& masterAddress,
                                                        DaemonNetworkThread& owningThread)
    : PeerConnection(frameMagic), address(masterAddress), owner(owningThread)
{}

DaemonNetworkThread::MasterConnection::~MasterConnection()
{
    close(Notify::yes);
}

bool DaemonNetworkThread::MasterConnection::connectToMaster()
{
    close(Notify::yes);
    unusable = false;
    const auto began = juce::Time::getMillisecondCounter();

    if (connectToSocket(formatIp(address.ip), address.port, timing::connectTimeoutMs))
        return true;

    const bool timedOut = juce::Time::getMillisecondCounter() - began >= timing::connectTimeoutMs;
    const auto failure =
        timedOut ? platform::ConnectFailure::timedOut : platform::ConnectFailure::other;
    QUELTA_LOG_DAEMON("could not connect to master %s: %s", formatAddress(address).c_str(),
                      platform::connectErrorText(address.ip, address.port, failure).c_str());
    return false;
}

void DaemonNetworkThread::MasterConnection::markIfDeaf(uint32_t now)
{
    if (!isUsable() || hasLivingReader(now))
        return;

    logError("nothing reads the connection to master %s any more -> connecting anew",
             formatAddress(address).c_str());
    unusable = true;
}

void DaemonNetworkThread::MasterConnection::send(const MasterDaemonMessage::Bytes& record)
{
    if (!unusable)
        unusable = !sendMessage(juce::MemoryBlock(record.data(), record.size()));
}

void DaemonNetworkThread::MasterConnection::connectionMade()
{
    PeerConnection::connectionMade();
    platform::prepareMasterSocket(getSocket()->getRawSocketHandle());
    QUELTA_LOG_DAEMON("connected to master %s", formatAddress(address).c_str());
}

void DaemonNetworkThread::MasterConnection::connectionLost()
{
    PeerConnection::connectionLost();
    QUELTA_LOG_DAEMON("disconnected from master %s", formatAddress(address).c_str());
}

void DaemonNetworkThread::MasterConnection::messageReceived(const juce::MemoryBlock& payload)
{
    const Delivery delivery(*this);
    MasterDaemonMessage message;

    if (parseMasterMessage(payload.getData(), payload.getSize(), message))
        owner.handleRequest(message, *this);
}

} // namespace quelta
