#include "exec_slave/MonitorLink.h"

#include "exec_slave/Duration.h"
#include "messages/Framing.h"
#include "platform/Sockets.h"

namespace quelta::execslave {

namespace {

constexpr uint32_t loopback = 0x7F000001;
constexpr int connectTimeoutMs = 3000;

/** How often the connection is examined while no heartbeats go out. */
constexpr std::chrono::milliseconds examination{1000};

} // namespace

MonitorLink::MonitorLink(Listener& linkListener)
    : PeerConnection(frameMagic), listener(linkListener)
{}

MonitorLink::~MonitorLink()
{
    sender = {};
    close(Notify::no);
}

std::string MonitorLink::open(uint16_t port)
{
    if (!connectToSocket("127.0.0.1", port, connectTimeoutMs))
        return "cannot connect to the daemon on 127.0.0.1:" + std::to_string(port) + ": " +
               platform::connectErrorText(loopback, port, platform::ConnectFailure::other);

    sender = std::jthread([this](const std::stop_token& stop) { sendMessages(stop); });
    return {};
}

void MonitorLink::announce(uint32_t version, uint32_t numGpus)
{
    const std::lock_guard guard(lock);
    schedule.announce(version, numGpus);
    changed.notify_all();
}

void MonitorLink::setAlive(bool isAlive)
{
    const std::lock_guard guard(lock);

    if (schedule.isAlive() == isAlive)
        return;

    schedule.setAlive(isAlive);
    changed.notify_all();
}

bool MonitorLink::waitUntilAnnounced(std::chrono::milliseconds limit)
{
    std::unique_lock guard(lock);
    return changed.wait_for(guard, limit, [this] { return announced; });
}

void MonitorLink::connectionLost()
{
    PeerConnection::connectionLost();
    listener.daemonLost();
}

void MonitorLink::messageReceived(const juce::MemoryBlock& payload)
{
    const Delivery delivery(*this);
    SlaveDaemonMessage message;

    if (SlaveDaemonMessage::fromData(payload.getData(), payload.getSize(), message) &&
        message.type == SlaveMessageType::STOP_SLAVE)
        listener.daemonAskedToStop();
}

void MonitorLink::sendMessages(const std::stop_token& stop)
{
    std::unique_lock guard(lock);

    while (!stop.stop_requested())
    {
        const auto now = getAwakeTime();

        if (const auto message = schedule.take(now))
        {
            guard.unlock();
            const bool sent = send(*message);
            guard.lock();

            if (!sent)
            {
                listener.daemonLost();
                return;
            }

            announced = announced || message->type == SlaveMessageType::SLAVE_INFO;
            changed.notify_all();
            continue;
        }

        // JUCE's reader ends without a callback after an invalid frame.
        if (!isConnected() || !hasLivingReader(juce::Time::getMillisecondCounter()))
            listener.daemonLost();

        const auto wait = schedule.timeToNext(now).value_or(examination);
        changed.wait_for(guard, stop, wait, [&] {
            return schedule.timeToNext(getAwakeTime()) == std::chrono::milliseconds::zero();
        });
    }
}

bool MonitorLink::send(const SlaveDaemonMessage& message)
{
    const auto bytes = message.encode();
    return sendMessage(juce::MemoryBlock(bytes.data(), bytes.size()));
}

} // namespace quelta::execslave
