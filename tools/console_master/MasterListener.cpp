#include "console_master/MasterListener.h"

#include <utility>

#include "console_master/HostList.h"

namespace quelta {

void Inbox::push(PeerEvent event)
{
    const std::lock_guard lock(mutex);
    events.push_back(std::move(event));
    arrival.notify_one();
}

std::vector<PeerEvent> Inbox::take(std::chrono::milliseconds limit)
{
    std::unique_lock lock(mutex);
    arrival.wait_for(lock, limit, [this] { return !events.empty(); });
    return std::exchange(events, {});
}

/** One daemon. Its own thread reads; `connectionMade` runs on the server's thread before that one
    starts. */
class MasterListener::Connection final : public juce::InterprocessConnection
{
public:
    Connection(ConnectionId connectionId, Inbox& eventInbox)
        : InterprocessConnection(false), id(connectionId), inbox(eventInbox)
    {}

    ~Connection() override { disconnect(-1, Notify::no); }

private:
    void connectionMade() override
    {
        peerIp = parseIp(getSocket()->getHostName().toStdString()).value_or(0);
        push(PeerEvent::Kind::connected);
    }

    void connectionLost() override { push(PeerEvent::Kind::lost); }

    void messageReceived(const juce::MemoryBlock& block) override
    {
        MasterDaemonMessage message;
        const bool valid = parseMasterMessage(block.getData(), block.getSize(), message);
        push(valid ? PeerEvent::Kind::record : PeerEvent::Kind::junk, message);
    }

    void push(PeerEvent::Kind kind, const MasterDaemonMessage& message = {})
    {
        inbox.push({kind, id, peerIp, message});
    }

    const ConnectionId id;
    Inbox& inbox;
    uint32_t peerIp = 0;
};

MasterListener::MasterListener(size_t index, Inbox& eventInbox)
    : listenerIndex(index), inbox(eventInbox)
{}

MasterListener::~MasterListener()
{
    // The server's thread waits in accept; a connection of our own lets it leave before stop() gets
    // impatient.
    if (getBoundPort() > 0)
    {
        stopping = true;
        juce::StreamingSocket wakeUp;
        const auto host = boundAddress.isEmpty() ? juce::String("127.0.0.1") : boundAddress;

        if (wakeUp.connect(host, getBoundPort(), 1000))
            leaving.wait(1000);
    }

    stop();
    connections.clear();
}

bool MasterListener::open(uint32_t ip, uint16_t port)
{
    boundAddress = ip == 0 ? juce::String() : juce::String(formatIp(ip));
    return beginWaitingForSocket(port, boundAddress);
}

uint16_t MasterListener::getPort() const
{
    return static_cast<uint16_t>(getBoundPort());
}

bool MasterListener::send(uint64_t connectionNumber, const MasterDaemonMessage& message)
{
    const auto bytes = encodeMasterMessage(message);
    const std::lock_guard lock(mutex);
    const auto found = connections.find(connectionNumber);
    return found != connections.end() && found->second->sendMessage({bytes.data(), bytes.size()});
}

juce::InterprocessConnection* MasterListener::createConnectionObject()
{
    if (stopping)
    {
        juce::Thread::getCurrentThread()->signalThreadShouldExit();
        leaving.signal();
        return nullptr;
    }

    const std::lock_guard lock(mutex);

    // Here is the one place where no earlier connection can still be in the server's hands.
    std::erase_if(connections, [](const auto& entry) { return !entry.second->isConnected(); });

    auto connection =
        std::make_unique<Connection>(ConnectionId{listenerIndex, ++lastNumber}, inbox);
    return connections.emplace(lastNumber, std::move(connection)).first->second.get();
}

} // namespace quelta
