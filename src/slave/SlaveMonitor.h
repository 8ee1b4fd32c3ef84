// The local TCP server through which one launched slave is watched: it accepts the slave, records
// the status, the time and the information that the slave's messages carry, and can ask the slave
// to end.
//
// One monitor serves one launch. The SlaveProcess thread makes it, polls it and destroys it; the
// server's thread accepts (acceptConnection, connectionMade); the connection's own thread
// delivers messages.
//
// Connection: none -> connected -> lost. The first to connect keeps its place, also after it is
// lost; whoever comes later is turned away.
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

    /** Finds a free port and listens on it, on every interface. Never the daemon's own port. Never
        fails: without a free port getPort() is 0, and nobody can connect. */
    SlaveMonitor(uint16_t daemonPort, MonitorPort& lastMonitorPort);

    /** Closes the port and the slave's connection. */
    ~SlaveMonitor() override;

    /** The port that the slave is to connect to; 0 if there is none. */
    uint16_t getPort() const { return port; }

    /** The slave's status and the milliseconds since its latest sign of life, both of one
        moment. */
    void getStatus(SlaveStatus& currentStatus, uint32_t& millisecondsSinceLastMessage) const;

    /** As the slave last reported them; 0 before. */
    uint32_t getSlaveVersion() const;
    uint32_t getNumGpus() const;

    /** Asks the slave to end: now if it is connected, otherwise as soon as it connects. */
    void sendStopMessage();

    /** For the connection: it is established, it is lost, it has delivered a valid message. */
    void startMonitoring();
    void stopMonitoring();
    void handleMessage(const SlaveDaemonMessage& message);

    /** The port with which a search begins, given that of the process's last monitor (0 for
        none). */
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
    bool established = false;   ///< Before, JUCE has no socket to send on.
    bool stopIsPending = false; ///< A stop was requested before the slave connected.
    SlaveStatus status = STATUS_STARTING;
    int64_t lastMessageTime = platform::getAwakeMilliseconds();
    uint32_t numGpus = 0;
    uint32_t slaveVersion = 0;
};

} // namespace quelta
