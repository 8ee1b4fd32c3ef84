#include "slave/SlaveMonitor.h"

#include <utility>

#include "log/Log.h"
#include "platform/Sockets.h"
#include "slave/SlaveConnection.h"

namespace quelta {

namespace {

constexpr int numPorts = 65536;

} // namespace

SlaveMonitor::SlaveMonitor(uint16_t daemonPort, MonitorPort& lastMonitorPort)
{
    findPort(daemonPort, lastMonitorPort);
}

SlaveMonitor::~SlaveMonitor()
{
    stopServing();

    std::unique_ptr<SlaveConnection> closing;

    {
        const juce::ScopedLock sl(lock);
        closing = std::move(connection);
        established = false;
    }

    // Outside the lock: this joins the reader thread, which may be waiting for the lock.
    closing.reset();
}

uint16_t SlaveMonitor::getFirstPort(uint16_t lastPort, uint16_t daemonPort)
{
    if (lastPort != 0)
        return lastPort;

    return daemonPort >= 1024 ? static_cast<uint16_t>(daemonPort + 1) : uint16_t{1024};
}

uint16_t SlaveMonitor::getNextPort(uint16_t candidate, uint16_t daemonPort)
{
    const auto next = static_cast<uint16_t>(candidate + 1);
    return next == daemonPort ? static_cast<uint16_t>(next + 1) : next;
}

void SlaveMonitor::findPort(uint16_t daemonPort, MonitorPort& lastMonitorPort)
{
    const auto first = getFirstPort(lastMonitorPort, daemonPort);
    lastMonitorPort = first;

    auto candidate = first;

    for (int tries = 0; tries < numPorts; ++tries)
    {
        // On a shared port the slave could connect to the other program.
        if (!platform::listenerWouldSharePort(candidate) && serve(candidate))
        {
            QUELTA_LOG_DAEMON("using free port %u to communicate with slave", candidate);
            port = candidate;
            lastMonitorPort = candidate;
            break;
        }

        candidate = getNextPort(candidate, daemonPort);

        if (candidate == first)
            break;
    }

    if (port == 0)
        logError("could not find a free socket to monitor slave");
}

void SlaveMonitor::getStatus(SlaveStatus& currentStatus,
                             uint32_t& millisecondsSinceLastMessage) const
{
    const juce::ScopedLock sl(lock);
    currentStatus = status;
    millisecondsSinceLastMessage =
        static_cast<uint32_t>(platform::getAwakeMilliseconds() - lastMessageTime);
}

uint32_t SlaveMonitor::getSlaveVersion() const
{
    const juce::ScopedLock sl(lock);
    return slaveVersion;
}

uint32_t SlaveMonitor::getNumGpus() const
{
    const juce::ScopedLock sl(lock);
    return numGpus;
}

void SlaveMonitor::sendStopMessage()
{
    const juce::ScopedLock sl(lock);

    if (established)
        deliverStopMessage();
    else
        stopIsPending = true;
}

void SlaveMonitor::deliverStopMessage()
{
    const auto bytes = SlaveDaemonMessage::createStopMessage().encode();

    if (!connection->sendMessage(juce::MemoryBlock(bytes.data(), bytes.size())))
        logError("failed to send stop message to slave");
}

juce::InterprocessConnection* SlaveMonitor::acceptConnection()
{
    const juce::ScopedLock sl(lock);

    if (connection != nullptr)
    {
        logError("multiple connections requested for slave monitor");
        return nullptr;
    }

    connection = std::make_unique<SlaveConnection>(*this);
    QUELTA_LOG_DAEMON("slave connection created");
    return connection.get();
}

void SlaveMonitor::startMonitoring()
{
    QUELTA_LOG_DAEMON("started to monitor slave");

    {
        const juce::ScopedLock sl(lock);
        established = true;
        lastMessageTime = platform::getAwakeMilliseconds();

        if (std::exchange(stopIsPending, false))
            deliverStopMessage();
    }

    finishAccepting();
}

void SlaveMonitor::stopMonitoring()
{
    // The status and its time stay as they are, so that the time limits keep running.
    QUELTA_LOG_DAEMON("stopped monitoring slave");
}

void SlaveMonitor::handleMessage(const SlaveDaemonMessage& message)
{
    const juce::ScopedLock sl(lock);

    switch (message.type)
    {
        case SlaveMessageType::AUTHENTICATING:
            setStatus(STATUS_AUTHENTICATING);
            break;
        case SlaveMessageType::SLAVE_INFO:
            numGpus = message.numGpus;
            slaveVersion = message.slaveVersion;
            setStatus(STATUS_INITIALIZED);
            QUELTA_LOG_DAEMON_DETAIL("slave has version %u and provides %u GPU(s)", slaveVersion,
                                     numGpus);
            break;
        case SlaveMessageType::SLAVE_STATUS:
            setStatus(STATUS_RUNNING);
            break;
        default:
            logError("received invalid status message from slave");
            break;
    }
}

void SlaveMonitor::setStatus(SlaveStatus newStatus)
{
    status = newStatus;
    lastMessageTime = platform::getAwakeMilliseconds();
}

} // namespace quelta
