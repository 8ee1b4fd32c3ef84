#include "master/DaemonNetworkThread.h"

#include <utility>

#include "log/Log.h"
#include "master/MasterConnection.h"
#include "platform/ChildProcess.h"
#include "platform/Process.h"
#include "platform/QuitSignals.h"
#include "util/LockUnlessExiting.h"
#include "util/Timing.h"

namespace quelta {

namespace {

constexpr uint32_t failedAttemptsBudgetMs = 1000; ///< Per tick, so that requests are served in between.

/** Far more than any network has. Caps the memory that forged beacons can consume. */
constexpr size_t mostMasters = 10'000;

/** Kept free for the slave's monitor, its launch and the log; no master gets one of these. */
constexpr int descriptorReserve = 16;

} // namespace

DaemonNetworkThread::DaemonNetworkThread(const DaemonSettings& daemonSettings, uint32_t slaveVersionToTell,
                                         uint32_t numGpusToTell, const SlaveTimeLimits& limits)
    : settings(daemonSettings),
      slaveVersion(slaveVersionToTell),
      numProvidedGpus(numGpusToTell),
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

    // Each entry goes with its connection, so that the status of a stopped slave reaches only those still
    // there.
    while (!masters.empty())
    {
        if (masters.begin()->second.get() == ownerConnection)
        {
            QUELTA_LOG_DAEMON("stopping slave because we are disconnecting from its master %s",
                              formatAddress(ownerAddress).c_str());
            QUELTA_LOG_DAEMON_DETAIL("reason for the stop: the daemon ends");
            stopSlave(true);
        }

        masters.erase(masters.begin());
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

    if (masters.size() >= mostMasters)
    {
        QUELTA_LOG_DAEMON("not registering master %s: there are %u already", formatAddress(address).c_str(),
                          static_cast<unsigned>(masters.size()));
        return;
    }

    QUELTA_LOG_DAEMON("detected new master on address %s", formatAddress(address).c_str());
    masters.emplace(address, std::make_unique<MasterConnection>(address, *this));
}

void DaemonNetworkThread::timerCallback()
{
    // Destroyed after the lock is released: that waits for their threads.
    std::vector<std::unique_ptr<MasterConnection>> forgotten;
    const juce::ScopedLock sl(lock);
    dropDeafConnections();

    for (const auto& address : connectToMasters())
        forgotten.push_back(forgetMaster(address));

    replacedSlaves.forgetEnded();
    platform::reapKilledChildren();

    // The interval counts from the end of a tick: after one that took long the next would come at once, and
    // no request would find the lock free.
    startTimer(timing::tickMs);
}

/** Replaces connections that JUCE takes for connected although their reader threads are gone. */
void DaemonNetworkThread::dropDeafConnections()
{
    const auto now = juce::Time::getMillisecondCounter();

    for (const auto& [address, connection] : masters)
        connection->dropIfDeaf(now);
}

/** Connects to every master that is not connected, and gives those that could not be reached. Stops once it
   has spent its time on them; the next tick then goes on behind the last one tried. */
std::vector<MasterAddress> DaemonNetworkThread::connectToMasters()
{
    std::vector<MasterAddress> unreachable;
    std::optional<int> freeDescriptors;
    uint32_t spentMs = 0;
    auto entry = lastMasterTried ? masters.upper_bound(*lastMasterTried) : masters.begin();
    lastMasterTried.reset();

    for (auto remaining = masters.size(); remaining > 0; --remaining, ++entry)
    {
        if (entry == masters.end())
            entry = masters.begin();

        if (entry->second->isUsable())
            continue;

        if (platform::quitWasRequested())
            break;

        const auto started = juce::Time::getMillisecondCounter();

        if (!connectWithReserve(*entry->second, freeDescriptors))
        {
            unreachable.push_back(entry->first);
            spentMs += juce::Time::getMillisecondCounter() - started;
        }

        if (spentMs >= failedAttemptsBudgetMs)
        {
            lastMasterTried = entry->first;
            break;
        }
    }

    return unreachable;
}

/** `freeDescriptors` is counted by a tick's first attempt and kept up to date by the others. */
bool DaemonNetworkThread::connectWithReserve(MasterConnection& connection,
                                             std::optional<int>& freeDescriptors)
{
    if (!freeDescriptors)
        freeDescriptors = platform::countFreeDescriptors();

    // The owner has left its place free; it must not lose its slave for the lack of one.
    if (&connection != ownerConnection && *freeDescriptors <= descriptorReserve)
    {
        if (!std::exchange(descriptorsAreScarce, true))
            logError("only %d file descriptors left: no more masters are connected until some are free",
                     *freeDescriptors);

        QUELTA_LOG_DAEMON("not connecting to master %s: only %d file descriptors left",
                          formatAddress(connection.getAddress()).c_str(), *freeDescriptors);
        return false;
    }

    if (!connection.connectToMaster())
        return false;

    if (*freeDescriptors > descriptorReserve)
        descriptorsAreScarce = false;

    --*freeDescriptors;
    return true;
}

/** Removes a master from the registry, and takes the slave away from it. */
std::unique_ptr<DaemonNetworkThread::MasterConnection> DaemonNetworkThread::forgetMaster(
    const MasterAddress& address)
{
    const auto entry = masters.find(address);

    if (entry->second.get() == ownerConnection)
    {
        QUELTA_LOG_DAEMON_DETAIL("reason for the stop: the connection to the owner is lost");
        stopSlave(true);
    }

    auto connection = std::move(entry->second);
    masters.erase(entry);
    return connection;
}

void DaemonNetworkThread::handleRequest(const MasterDaemonMessage& message, MasterConnection& connection)
{
    const LockUnlessExiting held(lock);

    // Drop requests from masters that have been unregistered meanwhile.
    if (held.isLocked() && isRegistered(connection))
        sendStatus(serveRequest(message, connection), connection);
}

bool DaemonNetworkThread::isRegistered(const MasterConnection& connection) const
{
    const auto entry = masters.find(connection.getAddress());
    return entry != masters.end() && entry->second.get() == &connection;
}

/** Does what a request asks for and gives the type of the reply. Stop and steal go by the address in the
   message, scan by the connection; masters rely on both. */
MasterMessageType DaemonNetworkThread::serveRequest(const MasterDaemonMessage& message,
                                                    MasterConnection& connection)
{
    const auto& master = message.masterAddress;

    switch (message.type)
    {
        case MasterMessageType::SCAN_REQUEST:
            QUELTA_LOG_DAEMON_DETAIL("received scan request from master %s", formatAddress(master).c_str());
            return &connection == ownerConnection && slave->hasFailed() ? MasterMessageType::SLAVE_FAILED
                                                                        : MasterMessageType::DAEMON_STATUS;

        case MasterMessageType::START_REQUEST:
            QUELTA_LOG_DAEMON("received start request from master %s", formatAddress(master).c_str());
            serveStart(message, connection);
            return MasterMessageType::START_REPLY;

        case MasterMessageType::STOP_REQUEST:
            QUELTA_LOG_DAEMON("received stop request from master %s", formatAddress(master).c_str());
            serveStop(message, connection);
            return MasterMessageType::STOP_REPLY;

        case MasterMessageType::STEAL_REQUEST:
            QUELTA_LOG_DAEMON("received steal request from master %s", formatAddress(master).c_str());
            serveSteal(message, connection);
            return MasterMessageType::STEAL_REPLY;

        default:
            logError("unexpected message type (%d)", static_cast<int>(message.type));
            return MasterMessageType::UNEXPECTED_REQUEST;
    }
}

void DaemonNetworkThread::serveStart(const MasterDaemonMessage& message, MasterConnection& connection)
{
    if (hasOwner())
        QUELTA_LOG_DAEMON_DETAIL("refused the start request from %s: the slave belongs to master %s",
                                 formatAddress(connection.getAddress()).c_str(),
                                 formatAddress(ownerAddress).c_str());
    else
        startSlave(message.masterAddress, connection, message.masterText);
}

void DaemonNetworkThread::serveStop(const MasterDaemonMessage& message, const MasterConnection& connection)
{
    if (message.masterAddress != ownerAddress)
    {
        QUELTA_LOG_DAEMON_DETAIL("refused the stop request from %s: it does not own the slave",
                                 formatAddress(connection.getAddress()).c_str());
        return;
    }

    QUELTA_LOG_DAEMON_DETAIL("reason for the stop: requested by the owner, from %s",
                             formatAddress(connection.getAddress()).c_str());
    stopSlave(true);
}

void DaemonNetworkThread::serveSteal(const MasterDaemonMessage& message, MasterConnection& connection)
{
    if (message.masterAddress == ownerAddress)
        return;

    QUELTA_LOG_DAEMON_DETAIL("reason for the stop: stolen by a request from %s",
                             formatAddress(connection.getAddress()).c_str());
    stopSlave(false);
    startSlave(message.masterAddress, connection, message.masterText);
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
    slave = std::make_unique<SlaveProcess>(address.ip, address.port, settings, false, this, slaveLimits);
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
    return encodeMasterMessage(
        {type, ownerAddress, ownerText, settings.slaveAlias.toStdString(), numProvidedGpus, slaveVersion});
}

void DaemonNetworkThread::sendStatus(MasterMessageType type, MasterConnection& connection) const
{
    connection.send(buildMasterMessage(type));
}

void DaemonNetworkThread::broadcastStatus() const
{
    const auto record = buildMasterMessage(MasterMessageType::DAEMON_STATUS);

    for (const auto& [address, connection] : masters)
        connection->send(record);
}

} // namespace quelta
