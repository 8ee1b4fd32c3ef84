// The daemon's centre on the masters' side: knows every master that has been heard, keeps them connected,
// answers their requests, binds the one slave to one master at a time, and tells that master how the slave
// fares. It runs no thread of its own.
//
//   state  event                                 next   what happens
//   free   start from any master                 owned  slave started, status to all
//   free   steal from any master                 owned  the same, after an error line
//   owned  stop from the owner                   free   slave stopped, status to all
//   owned  steal from another master             owned  slave stopped, started for the thief, status to all
//   owned  the owner's connection lost for good  free   slave stopped, status to all
//   owned  the slave fails                       owned  the owner is told; it frees the slave by a stop
//   any    any other start, stop or steal        same   only the reply
//
// Threads: the discovery thread (masterDetected), the message thread (constructor, timerCallback,
// destructor), each connection's own thread (handleRequest) and the SlaveProcess thread (both notifications).
// `lock` is held by every operation throughout, even while connecting and while waiting for a slave to end.
// Those threads that its holder may be waiting for take it by LockUnlessExiting only.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <juce_events/juce_events.h>

#include "app/DaemonSettings.h"
#include "app/SlaveProcess.h"
#include "master/MasterDiscovery.h"
#include "master/MasterDiscoveryListener.h"
#include "master/ReplacedSlaves.h"
#include "messages/MasterDaemonMessage.h"

namespace quelta {

class DaemonNetworkThread final : public MasterDiscoveryListener, public SlaveProcessOwner, public juce::Timer
{
public:
    class MasterConnection;

    /** Starts listening for masters. Every message tells them the version and the number of GPUs. The slave
        has to keep to `limits`. */
    DaemonNetworkThread(const DaemonSettings& daemonSettings, uint32_t slaveVersionToTell,
                        uint32_t numGpusToTell, const SlaveTimeLimits& limits = {});

    /** Stops listening, disconnects from all masters and stops the slave. */
    ~DaemonNetworkThread() override;

    void masterDetected(const MasterAddress& address) override;
    void notifySlaveRunning() override;
    void notifySlaveFailed() override;
    void timerCallback() override;

    /** Serves one valid record that `connection` has received. */
    void handleRequest(const MasterDaemonMessage& message, MasterConnection& connection);

private:
    using Registry = std::map<MasterAddress, std::unique_ptr<MasterConnection>>;

    void dropDeafConnections();
    std::vector<MasterAddress> connectToMasters();
    bool connectWithReserve(MasterConnection& connection, std::optional<int>& freeDescriptors);
    std::unique_ptr<MasterConnection> forgetMaster(const MasterAddress& address);

    MasterMessageType serveRequest(const MasterDaemonMessage& message, MasterConnection& connection);
    void serveStart(const MasterDaemonMessage& message, MasterConnection& connection);
    void serveStop(const MasterDaemonMessage& message, const MasterConnection& connection);
    void serveSteal(const MasterDaemonMessage& message, MasterConnection& connection);
    bool isRegistered(const MasterConnection& connection) const;
    bool hasOwner() const { return ownerAddress.ip != 0 && ownerAddress.port != 0; }

    void startSlave(const MasterAddress& address, MasterConnection& connection,
                    const std::string& masterText);
    void stopSlave(bool notifyAll);

    MasterDaemonMessage::Bytes buildMasterMessage(MasterMessageType type) const;
    void sendStatus(MasterMessageType type, MasterConnection& connection) const;
    void broadcastStatus() const;

    // constant after construction
    const DaemonSettings settings;
    const uint32_t slaveVersion;
    const uint32_t numProvidedGpus;
    const SlaveTimeLimits slaveLimits;

    juce::CriticalSection lock; ///< Recursive. Guards everything below.

    // Set together by startSlave, cleared together by stopSlave.
    MasterAddress ownerAddress; ///< Counts as none while ip or port is 0.
    MasterConnection* ownerConnection = nullptr;
    std::string ownerText; ///< As received, NULs included.

    Registry masters;
    std::optional<MasterAddress> lastMasterTried; ///< Where a tick broke off that had spent its time.
    bool descriptorsAreScarce = false;            ///< Only the reserve is left, which has been logged.
    std::unique_ptr<SlaveProcess> slave;
    ReplacedSlaves replacedSlaves;
    std::unique_ptr<MasterDiscovery> discovery;
};

} // namespace quelta
