// The centre of the daemon's master side. It wires: masters that are heard go into the registry,
// requests to the pure decision about ownership, and what that decides to the slave and to the
// masters. It runs no thread of its own.
//
//   free -> owned   by a start, or by a steal after an error line
//   owned -> free   by the owner's stop, by losing the owner's connection for good, at the end
//   owned -> owned  by a steal: stopped, then started for the thief
//
// A slave that fails stays with its owner, who is told and frees it by a stop.
//
// Threads: the discovery thread (masterDetected), the message thread (constructor, timerCallback,
// destructor), each connection's own thread (handleRequest) and the SlaveProcess thread (both
// notifications). `lock` is held by every operation throughout, even while connecting and while
// waiting for a slave to end. Threads that its holder may be waiting for take it by
// LockUnlessExiting only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <juce_events/juce_events.h>

#include "app/DaemonSettings.h"
#include "app/SlaveProcess.h"
#include "master/MasterDiscovery.h"
#include "master/MasterDiscoveryListener.h"
#include "master/MasterRegistry.h"
#include "master/OwnershipDecision.h"
#include "master/ReplacedSlaves.h"
#include "messages/MasterDaemonMessage.h"

namespace quelta {

class DaemonNetworkThread final : public MasterDiscoveryListener,
                                  public SlaveProcessOwner,
                                  public juce::Timer
{
public:
    class MasterConnection;

    /** Starts listening for masters. Every message tells them the version and the number of GPUs.
        The slave has to keep to `limits`. */
    DaemonNetworkThread(const DaemonSettings& daemonSettings, uint32_t slaveVersionToTell,
                        uint32_t numGpusToTell, MonitorPort& monitorPort,
                        const SlaveTimeLimits& limits = {});

    /** Stops listening, disconnects from all masters and stops the slave. */
    ~DaemonNetworkThread() override;

    void masterDetected(const MasterAddress& address) override;
    void notifySlaveRunning() override;
    void notifySlaveFailed() override;
    void timerCallback() override;

    /** Serves one valid record that `connection` has received. */
    void handleRequest(const MasterDaemonMessage& message, MasterConnection& connection);

private:
    std::unique_ptr<MasterLink> forgetMaster(const MasterAddress& address);
    void serveRequest(const MasterDaemonMessage& message, MasterConnection& connection);
    void explain(const OwnershipDecision& decision, MasterMessageType type,
                 const MasterConnection& connection) const;
    void carryOut(const OwnershipDecision& decision, const MasterDaemonMessage& message,
                  MasterConnection& connection);

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
    MonitorPort& lastMonitorPort;
    const SlaveTimeLimits slaveLimits;

    juce::CriticalSection lock; ///< Recursive. Guards everything below.

    // Set together by startSlave, cleared together by stopSlave.
    MasterAddress ownerAddress; ///< Counts as none while ip or port is 0.
    MasterConnection* ownerConnection = nullptr;
    std::string ownerText; ///< As received, NULs included.

    MasterRegistry masters;
    std::unique_ptr<SlaveProcess> slave;
    ReplacedSlaves replacedSlaves;
    std::unique_ptr<MasterDiscovery> discovery;
};

} // namespace quelta
