// Wires the daemon's master side: registers discovered masters, passes their requests to the
// ownership decision, and applies that decision to the slave and the masters. Despite its name it
// does not run a thread.
//
//   free -> owned   a start request; also a steal request, which then logs an error
//   owned -> free   the owner's stop request, a failed reconnection to the owner, shutdown
//   owned -> owned  a steal request: the slave is stopped, then started for the new owner
//
// A failed slave stays with its owner, which is notified and frees it with a stop request.
//
// Threads: the discovery thread (masterDetected), the message thread (constructor, timerCallback,
// destructor), each connection's reader thread (handleRequest) and the SlaveProcess thread (both
// notifications). Every operation holds `lock` throughout, even while connecting and while waiting
// for a slave to end. Threads that the holder may be joining acquire it only with
// LockUnlessExiting.
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

    /** Starts listening for masters. Every message carries the slave's version and number of GPUs.
        `monitorPort` has to outlive the object. The watchdog applies `limits` to the slave. */
    DaemonNetworkThread(const DaemonSettings& daemonSettings, uint32_t slaveVersionToTell,
                        uint32_t numGpusToTell, MonitorPort& monitorPort,
                        const SlaveTimeLimits& limits = {});

    /** Stops listening, disconnects from all masters and stops the slave. */
    ~DaemonNetworkThread() override;

    void masterDetected(const MasterAddress& address) override;
    void notifySlaveRunning() override;
    void notifySlaveFailed() override;
    void timerCallback() override;

    /** Handles one valid record received by `connection`. */
    void handleRequest(const MasterDaemonMessage& message, MasterConnection& connection);

private:
    std::unique_ptr<MasterLink> unregisterMaster(const MasterAddress& address);
    void serveRequest(const MasterDaemonMessage& message, MasterConnection& connection);
    void logReason(const OwnershipDecision& decision, MasterMessageType type,
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
    MasterAddress ownerAddress; ///< No owner while ip or port is 0.
    MasterConnection* ownerConnection = nullptr;
    std::string ownerText; ///< As received, NULs included.

    MasterRegistry masters;
    std::unique_ptr<SlaveProcess> slave;
    ReplacedSlaves replacedSlaves;
    std::unique_ptr<MasterDiscovery> discovery;
};

} // namespace quelta
