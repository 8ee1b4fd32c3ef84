#include "master/MasterDiscovery.h"

#include <array>

#include "log/Log.h"
#include "messages/MasterDaemonMessage.h"
#include "util/Timing.h"

namespace quelta {

namespace {

/** In bytes. Longer datagrams are truncated and then rejected for their size. */
constexpr size_t datagramCapacity = 1000;

} // namespace

MasterDiscovery::MasterDiscovery(uint16_t portToListenOn)
    : Thread("MasterDiscovery"), port(portToListenOn)
{}

MasterDiscovery::~MasterDiscovery()
{
    // Without a timeout: JUCE would kill a thread that is blocked writing to the log.
    stopThread(-1);
}

void MasterDiscovery::run()
{
    if (!openSocket())
        return;

    while (!threadShouldExit())
    {
        const auto readiness = socket.waitUntilReadable(timing::discoveryPollMs);

        if (readiness == platform::BeaconSocket::Readiness::timedOut)
            continue;

        if (readiness == platform::BeaconSocket::Readiness::failed || !serveOneDatagram())
        {
            logError("master discover receive failed");
            return;
        }
    }

    socket.close();
}

bool MasterDiscovery::openSocket()
{
    QUELTA_LOG_DAEMON("start listening for masters on port %u", port);

    if (!socket.create())
    {
        logError("failed to create listen socket: %s", platform::socketErrorText().c_str());
        return false;
    }

    if (!socket.bindTo(port))
    {
        logError("failed to bind to address: %s", platform::socketErrorText().c_str());
        return false;
    }

    return true;
}

/** Returns false on a socket error. */
bool MasterDiscovery::serveOneDatagram()
{
    std::array<uint8_t, datagramCapacity> datagram;
    uint32_t senderIp = 0;
    const auto size = socket.receive(datagram.data(), datagram.size(), senderIp);

    if (size < 0)
        return size == platform::BeaconSocket::nothingThere;

    MasterDaemonMessage beacon;

    if (!parseMasterMessage(datagram.data(), static_cast<size_t>(size), beacon))
        QUELTA_LOG_DAEMON("failed to decode beacon message from master %s",
                          formatAddress({senderIp, 0}).c_str());
    else if (listener != nullptr)
        listener->masterDetected(beacon.masterAddress);

    return true;
}

} // namespace quelta
