// The local TCP server to which one launched slave reports. It accepts the slave, records the
// status, the time and the information from the slave's messages, and can ask the slave to end.
//
// One monitor serves one launch. The SlaveProcess thread constructs, polls and destroys it; the
// server's thread accepts (acceptConnection, connectionMade); the reader thread delivers messages.
//
// Connection: none -> connected -> lost. Only the first client is accepted. Later clients are
// refused, even after the first is lost.
#pragma once

#include <cstdint>
#include <memory>

#include <juce_events/juce_events.h>

#include "messages/SlaveDaemonMessage.h"
#include "platform/AwakeClock.h"
#include "slave/MonitorPort.h"
#include "util/PeerServer.h"

namespace quelta {

class SlaveMonitor final : public PeerServer
{
public:
    class SlaveConnection;

    /** Finds a free port other than `daemonPort` and listens on it, on every interface. The search
        begins at `lastMonitorPort` unless that is 0, and stores its result there. If no port is
        free, getPort() returns 0 and no slave can connect. */
    SlaveMonitor(uint16_t daemonPort, MonitorPort& lastMonitorPort);

    /** Closes the port and the slave's connection. */
    ~SlaveMonitor() override;

    /** The port for the slave to connect to; 0 if there is none. */
    uint16_t getPort() const { return port; }

    /** Returns the slave's status and the milliseconds since its last sign of life, read
        together. */
    void getStatus(SlaveStatus& currentStatus, uint32_t& millisecondsSinceLastMessage) const;

    /** As last reported by the slave; 0 before. */
    uint32_t getSlaveVersion() const;
    uint32_t getNumGpus() const;

    /** Asks the slave to end: now if it is connected, otherwise as soon as it connects. */
    void sendStopMessage();

    /** Called by the connection: established, lost, valid message received. */
    void startMonitoring();
    void stopMonitoring();
    void handleMessage(const SlaveDaemonMessage& message);

    /** The port at which a search begins. `lastPort` is the last monitor's, 0 if there is none. */
    static uint16_t getFirstPort(uint16_t lastPort, uint16_t daemonPort);

    /** The port to try after `candidate`; 65535 is followed by 0. */
    static uint16_t getNextPort(uint16_t candidate, uint16_t daemonPort);

private:
    void findPort(uint16_t daemonPort, MonitorPort& lastMonitorPort);
    juce::InterprocessConnection* acceptConnection() override;
    void setStatus(SlaveStatus newStatus);
    void deliverStopMessage();

    uint16_t port = 0; // constant after construction

    juce::CriticalSection lock; ///< Guards everything below.
    std::unique_ptr<SlaveConnection> connection;
    bool established = false;   ///< Until then JUCE has no socket to send on.
    bool stopIsPending = false; ///< A stop was requested before the slave connected.
    SlaveStatus status = STATUS_STARTING;
    int64_t lastMessageTime = platform::getAwakeMilliseconds();
    uint32_t numGpus = 0;
    uint32_t slaveVersion = 0;
};

} // namespace quelta
