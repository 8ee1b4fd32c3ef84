#include "master/DaemonNetworkThread.h"

#include <vector>

#include "log/Log.h"
#include "master/MasterConnection.h"
#include "platform/ChildProcess.h"
#include "util/LockUnlessExiting.h"
#include "util/Timing.h"

namespace quelta {

DaemonNetworkThread::DaemonNetworkThread(const DaemonSettings& daemonSettings,
                                         uint32_t slaveVersionToTell, uint32_t numGpusToTell,
                                         MonitorPort& monitorPort, const SlaveTimeLimits& limits)
    : settings(daemonSettings),
      slaveVersion(slaveVersionToTell),
      numProvidedGpus(numGpusToTell),
      lastMonitorPort(monitorPort),
      slaveLimits(limits),
      discovery(std::make_unique<MasterDiscovery>(daemonSettings.daemonPort))
{
    discovery->setListener(this);

    if (!discovery->startThread())
        logError("the system refused the thread that listens for masters");

    startTimer(timing::tickMs);
}

DaemonNetworkThread::~DaemonNetworkThread()
{
    const juce::ScopedLock sl(lock);
    stopTimer();
    discovery.reset();
    replacedSlaves.signalAll();

    logUnprefixed("closing down all existing master connections (%u)...",
                  static_cast<unsigned>(masters.size()));

    // Unregister one at a time, so that the broadcast about a stopped slave reaches only the
    // masters that are still registered.
    while (!masters.isEmpty())
    {
        auto& first = masters.getFirst();

        if (&first == ownerConnection)
        {
            QUELTA_LOG_DAEMON("stopping slave because we are disconnecting from its master %s",
                              formatAddress(ownerAddress).c_str());
            QUELTA_LOG_DAEMON_DETAIL("reason for the stop: the daemon ends");
            stopSlave(true);
        }

        masters.remove(first.getAddress());
    }

    if (slave != nullptr)
    {
        logError("there was still a slave process hanging around. stopping it too...");
        stopSlave(true);
    }

    replacedSlaves.waitForAll();
}

void DaemonNetworkThread::masterDetected(const MasterAddress& address)
{
    const LockUnlessExiting held(lock);

    if (!held.isLocked() || masters.contains(address))
        return;

    if (masters.isFull())
    {
        QUELTA_LOG_DAEMON("not registering master %s: there are %u already",
                          formatAddress(address).c_str(), static_cast<unsigned>(masters.size()));
        return;
    }

    QUELTA_LOG_DAEMON("detected new master on address %s", formatAddress(address).c_str());
    masters.add(std::make_unique<MasterConnection>(address, *this));
}

void DaemonNetworkThread::timerCallback()
{
    // Declared before the lock, so that the connections are destroyed after it is released: their
    // destructors join the reader threads.
    std::vector<std::unique_ptr<MasterLink>> unregistered;
    const juce::ScopedLock sl(lock);
    masters.markDeafLinks();

    for (const auto& address : masters.connect(ownerConnection))
        unregistered.push_back(unregisterMaster(address));

    replacedSlaves.removeEnded();
    platform::reapKilledChildren();

    // Restart the interval at the end of the tick. After a long tick the next one would otherwise
    // follow at once, and requests would starve for the lock.
    startTimer(timing::tickMs);
}

/** Unregisters a master. Stops the slave if that master owns it. */
std::unique_ptr<MasterLink> DaemonNetworkThread::unregisterMaster(const MasterAddress& address)
{
    if (ownerConnection != nullptr && ownerConnection->getAddress() == address)
    {
        QUELTA_LOG_DAEMON_DETAIL("reason for the stop: the connection to the owner is lost");
        stopSlave(true);
    }

    return masters.remove(address);
}

void DaemonNetworkThread::handleRequest(const MasterDaemonMessage& message,
                                        MasterConnection& connection)
{
    const LockUnlessExiting held(lock);

    // Drop requests from masters that have been unregistered meanwhile.
    if (held.isLocked() && masters.contains(connection))
        serveRequest(message, connection);
}

void DaemonNetworkThread::serveRequest(const MasterDaemonMessage& message,
                                       MasterConnection& connection)
{
    const auto master = formatAddress(message.masterAddress);

    switch (message.type)
    {
        case MasterMessageType::SCAN_REQUEST:
            QUELTA_LOG_DAEMON_DETAIL("received scan request from master %s", master.c_str());
            break;
        case MasterMessageType::START_REQUEST:
            QUELTA_LOG_DAEMON("received start request from master %s", master.c_str());
            break;
        case MasterMessageType::STOP_REQUEST:
            QUELTA_LOG_DAEMON("received stop request from master %s", master.c_str());
            break;
        case MasterMessageType::STEAL_REQUEST:
            QUELTA_LOG_DAEMON("received steal request from master %s", master.c_str());
            break;
        default:
            logError("unexpected message type (%d)", static_cast<int>(message.type));
            break;
    }

    const OwnershipState state{ownerAddress, slave != nullptr && slave->hasFailed()};
    const auto decision = decideOwnership(
        state, {message.type, message.masterAddress, &connection == ownerConnection});
    logReason(decision, message.type, connection);
    carryOut(decision, message, connection);
}

/** Logs why the slave is stopped or why a request changes nothing. Names the peer's own address,
    because the message may carry any. */
void DaemonNetworkThread::logReason(const OwnershipDecision& decision, MasterMessageType type,
                                    const MasterConnection& connection) const
{
    const auto peer = formatAddress(connection.getAddress());

    if (type == MasterMessageType::START_REQUEST && !decision.start)
        QUELTA_LOG_DAEMON_DETAIL(
            "refused the start request from %s: the slave belongs to master %s", peer.c_str(),
            formatAddress(ownerAddress).c_str());
    else if (type == MasterMessageType::STOP_REQUEST &&
             decision.stop == OwnershipDecision::Stop::no)
        QUELTA_LOG_DAEMON_DETAIL("refused the stop request from %s: it does not own the slave",
                                 peer.c_str());
    else if (decision.stop == OwnershipDecision::Stop::andTellAll)
        QUELTA_LOG_DAEMON_DETAIL("reason for the stop: requested by the owner, from %s",
                                 peer.c_str());
    else if (decision.stop == OwnershipDecision::Stop::silently)
        QUELTA_LOG_DAEMON_DETAIL("reason for the stop: stolen by a request from %s", peer.c_str());
}

void DaemonNetworkThread::carryOut(const OwnershipDecision& decision,
                                   const MasterDaemonMessage& message, MasterConnection& connection)
{
    if (decision.stop != OwnershipDecision::Stop::no)
        stopSlave(decision.stop == OwnershipDecision::Stop::andTellAll);

    if (decision.start)
        startSlave(message.masterAddress, connection, message.masterText);

    sendStatus(decision.reply, connection);
}

void DaemonNetworkThread::startSlave(const MasterAddress& address, MasterConnection& connection,
                                     const std::string& masterText)
{
    if (slave != nullptr)
    {
        logError("already running slave");
        replacedSlaves.add(std::move(slave));
    }

    QUELTA_LOG_DAEMON("starting slave for master %s", formatAddress(address).c_str());
    ownerAddress = address;
    ownerConnection = &connection;
    ownerText = masterText;
    slave = std::make_unique<SlaveProcess>(address.ip, address.port, settings, false, this,
                                           lastMonitorPort, slaveLimits);
    broadcastStatus();
}

void DaemonNetworkThread::stopSlave(bool notifyAll)
{
    if (slave == nullptr)
    {
        logError("we don't have an Quelta slave running");
        return;
    }

    QUELTA_LOG_DAEMON("stopping Quelta slave for master %s", formatAddress(ownerAddress).c_str());
    slave->signalThreadShouldExit();
    slave->waitForThreadToExit(-1);
    slave.reset();

    ownerAddress = {};
    ownerConnection = nullptr;
    ownerText.clear();

    if (notifyAll)
        broadcastStatus();
}

void DaemonNetworkThread::notifySlaveRunning()
{
    const LockUnlessExiting held(lock);

    if (!held.isLocked() || replacedSlaves.contains(juce::Thread::getCurrentThread()))
        return;

    if (ownerConnection == nullptr)
    {
        logError("slave is initialized, although no master is bound to it?!?");
        return;
    }

    QUELTA_LOG_DAEMON("notifying master %s that the slave is initialized and running",
                      formatAddress(ownerAddress).c_str());
    sendStatus(MasterMessageType::SLAVE_RUNNING, *ownerConnection);
}

void DaemonNetworkThread::notifySlaveFailed()
{
    {
        const LockUnlessExiting held(lock, timing::failureNotificationPollMs);

        if (!held.isLocked() || replacedSlaves.contains(juce::Thread::getCurrentThread()))
            return;

        if (ownerConnection != nullptr)
        {
            QUELTA_LOG_DAEMON("notifying master %s that the slave has crashed",
                              formatAddress(ownerAddress).c_str());
            sendStatus(MasterMessageType::SLAVE_FAILED, *ownerConnection);
            return;
        }
    }

    logError("detected a slave crash, although no master is bound to it?!?");
}

MasterDaemonMessage::Bytes DaemonNetworkThread::buildMasterMessage(MasterMessageType type) const
{
    return encodeMasterMessage({type, ownerAddress, ownerText, settings.slaveAlias.toStdString(),
                                numProvidedGpus, slaveVersion});
}

void DaemonNetworkThread::sendStatus(MasterMessageType type, MasterConnection& connection) const
{
    connection.send(buildMasterMessage(type));
}

void DaemonNetworkThread::broadcastStatus() const
{
    masters.broadcast(buildMasterMessage(MasterMessageType::DAEMON_STATUS));
}

} // namespace quelta
