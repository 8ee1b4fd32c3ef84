#include "console_master/MasterListener.h"

#include <utility>

#include "console_master/HostList.h"
#include "messages/Framing.h"
#include "util/PeerConnection.h"

namespace quelta {

void Inbox::push(PeerEvent event)
{
    const std::lock_guard lock(mutex);
    events.push_back(std::move(event));
    arrival.notify_one();
}

std::vector<PeerEvent> Inbox::take(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(mutex);
    arrival.wait_for(lock, timeout, [this] { return !events.empty(); });
    return std::exchange(events, {});
}

/** The connection of one daemon. JUCE calls connectionMade on the server's thread before it starts
    the reader thread, which calls connectionLost and messageReceived. */
class MasterListener::Connection final : public PeerConnection
{
public:
    Connection(ConnectionId connectionId, MasterListener& owningListener)
        : PeerConnection(frameMagic), id(connectionId), listener(owningListener)
    {}

    ~Connection() override { close(Notify::no); }

private:
    void connectionMade() override
    {
        PeerConnection::connectionMade();
        peerIp = parseIp(getSocket()->getHostName().toStdString()).value_or(0);
        push(PeerEvent::Kind::connected);
        listener.finishAccepting();
    }

    void connectionLost() override
    {
        PeerConnection::connectionLost();
        push(PeerEvent::Kind::lost);
    }

    void messageReceived(const juce::MemoryBlock& payload) override
    {
        const Delivery delivery(*this);
        MasterDaemonMessage message;
        const bool valid = parseMasterMessage(payload.getData(), payload.getSize(), message);
        push(valid ? PeerEvent::Kind::record : PeerEvent::Kind::junk, message);
    }

    void push(PeerEvent::Kind kind, const MasterDaemonMessage& message = {})
    {
        listener.inbox.push({kind, id, peerIp, message});
    }

    const ConnectionId id;
    MasterListener& listener;
    uint32_t peerIp = 0; // constant once the reader thread runs
};

MasterListener::MasterListener(size_t index, Inbox& eventInbox)
    : listenerIndex(index), inbox(eventInbox)
{}

MasterListener::~MasterListener()
{
    stopServing();
    connections.clear();
}

bool MasterListener::open(uint32_t ip, uint16_t port)
{
    return serve(port, ip == 0 ? juce::String() : juce::String(formatIp(ip)));
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

juce::InterprocessConnection* MasterListener::acceptConnection()
{
    const std::lock_guard lock(mutex);

    // Safe only here: JUCE still uses a new connection after acceptConnection has returned it, but
    // no longer when it asks for the next one.
    std::erase_if(connections, [](const auto& entry) { return !entry.second->isConnected(); });

    auto connection =
        std::make_unique<Connection>(ConnectionId{listenerIndex, ++lastNumber}, *this);
    return connections.emplace(lastNumber, std::move(connection)).first->second.get();
}

} // namespace quelta
