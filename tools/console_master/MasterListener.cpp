#include "console_master/MasterListener.h"

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <map>
#include <thread>
#include <utility>

#include "farm_view/platform/ExclusiveAddress.h"
#include "messages/Framing.h"
#include "util/LittleEndian.h"

namespace quelta {

namespace {

using boost::asio::ip::tcp;
using Error = boost::system::error_code;

/** A daemon's records have 92 bytes. Larger frames are reported as junk up to this size; beyond it
    the peer is no daemon. */
constexpr uint32_t maxPayloadSize = 65536;
constexpr std::chrono::milliseconds acceptRetryInterval{100};

} // namespace

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

/** Everything that the listener's thread owns, and the connections, which the lock guards. */
class MasterListener::Service
{
public:
    Service(size_t index, Inbox& eventInbox) : listenerIndex(index), inbox(eventInbox) {}
    ~Service();

    bool open(uint32_t ip, uint16_t port);
    uint16_t getPort() const { return boundPort; }
    bool send(uint64_t number, const MasterDaemonMessage& message);

    /** Called by a connection on the listener's thread. */
    void push(PeerEvent event) { inbox.push(std::move(event)); }
    void forget(uint64_t number);

private:
    void accept();
    void accepted(Error error, tcp::socket socket);

    const size_t listenerIndex;
    Inbox& inbox;
    uint16_t boundPort = 0;
    uint64_t lastNumber = 0;

    boost::asio::io_context context{1};
    tcp::acceptor acceptor{context};
    boost::asio::steady_timer acceptTimer{context};

    std::mutex mutex;
    std::map<uint64_t, std::shared_ptr<Connection>> connections;

    std::thread thread;
};

/** The connection of one daemon. Everything runs on the listener's thread. The service and pending
    operations keep it alive. */
class MasterListener::Connection final : public std::enable_shared_from_this<Connection>
{
public:
    Connection(tcp::socket givenSocket, ConnectionId connectionId, Service& owningService)
        : socket(std::move(givenSocket)), id(connectionId), service(owningService)
    {}

    void start()
    {
        Error ignored;
        peerIp = socket.remote_endpoint(ignored).address().to_v4().to_uint();
        socket.set_option(tcp::no_delay(true), ignored);
        push(PeerEvent::Kind::connected);
        readHeader();
    }

    void send(const MasterDaemonMessage& message)
    {
        const auto bytes = encodeMasterMessage(message);
        std::array<uint8_t, frameHeaderSize> begin{};
        writeLittleEndian32(begin.data(), frameMagic);
        writeLittleEndian32(begin.data() + 4, static_cast<uint32_t>(bytes.size()));
        unsent.insert(unsent.end(), begin.begin(), begin.end());
        unsent.insert(unsent.end(), bytes.begin(), bytes.end());

        if (inFlight.empty())
            write();
    }

private:
    void readHeader()
    {
        boost::asio::async_read(socket, boost::asio::buffer(header),
                                [self = shared_from_this()](Error error, size_t) {
                                    if (error)
                                        self->end();
                                    else
                                        self->readPayload();
                                });
    }

    void readPayload()
    {
        const auto size = static_cast<int32_t>(readLittleEndian32(header.data() + 4));

        if (readLittleEndian32(header.data()) != frameMagic ||
            size > static_cast<int32_t>(maxPayloadSize))
            return end();

        // Such frames have no payload.
        if (size <= 0)
            return readHeader();

        payload.resize(static_cast<size_t>(size));
        boost::asio::async_read(socket, boost::asio::buffer(payload),
                                [self = shared_from_this()](Error error, size_t) {
                                    if (error)
                                        return self->end();

                                    self->takePayload();
                                    self->readHeader();
                                });
    }

    void takePayload()
    {
        MasterDaemonMessage message;
        const bool valid = parseMasterMessage(payload.data(), payload.size(), message);
        push(valid ? PeerEvent::Kind::record : PeerEvent::Kind::junk, message);
    }

    void write()
    {
        inFlight = std::exchange(unsent, {});
        boost::asio::async_write(socket, boost::asio::buffer(inFlight),
                                 [self = shared_from_this()](Error error, size_t) {
                                     self->inFlight.clear();

                                     // The read fails, too, and ends the connection.
                                     if (!error && !self->unsent.empty())
                                         self->write();
                                 });
    }

    void end()
    {
        Error ignored;
        socket.close(ignored);
        service.forget(id.number);
        push(PeerEvent::Kind::lost);
    }

    void push(PeerEvent::Kind kind, const MasterDaemonMessage& message = {})
    {
        service.push({kind, id, peerIp, message});
    }

    tcp::socket socket;
    const ConnectionId id;
    Service& service;
    uint32_t peerIp = 0;
    std::array<uint8_t, frameHeaderSize> header{};
    std::vector<uint8_t> payload;
    std::vector<uint8_t> unsent;
    std::vector<uint8_t> inFlight;
};

MasterListener::Service::~Service()
{
    context.stop();

    if (thread.joinable())
        thread.join();
}

bool MasterListener::Service::open(uint32_t ip, uint16_t port)
{
    const tcp::endpoint endpoint(boost::asio::ip::address_v4(ip), port);
    Error error;
    acceptor.close(error); // after a failure
    acceptor.open(endpoint.protocol(), error);

    if (error)
        return false;

    farmview::makeAddressExclusive(acceptor);

    if (acceptor.bind(endpoint, error) ||
        acceptor.listen(tcp::acceptor::max_listen_connections, error))
        return false;

    boundPort = acceptor.local_endpoint(error).port();
    accept();
    thread = std::thread([this] { context.run(); });
    return true;
}

bool MasterListener::Service::send(uint64_t number, const MasterDaemonMessage& message)
{
    const std::lock_guard lock(mutex);
    const auto found = connections.find(number);

    if (found == connections.end())
        return false;

    boost::asio::post(context,
                      [connection = found->second, message] { connection->send(message); });
    return true;
}

void MasterListener::Service::forget(uint64_t number)
{
    const std::lock_guard lock(mutex);
    connections.erase(number);
}

void MasterListener::Service::accept()
{
    acceptor.async_accept(
        [this](Error error, tcp::socket socket) { accepted(error, std::move(socket)); });
}

void MasterListener::Service::accepted(Error error, tcp::socket socket)
{
    if (error)
    {
        // For instance without a free descriptor: retrying at once would busy-loop.
        acceptTimer.expires_after(acceptRetryInterval);
        acceptTimer.async_wait([this](Error) { accept(); });
        return;
    }

    const ConnectionId id{listenerIndex, ++lastNumber};
    auto connection = std::make_shared<Connection>(std::move(socket), id, *this);
    {
        const std::lock_guard lock(mutex);
        connections[id.number] = connection;
    }
    connection->start();
    accept();
}

MasterListener::MasterListener(size_t index, Inbox& eventInbox)
    : service(std::make_unique<Service>(index, eventInbox))
{}

MasterListener::~MasterListener() = default;

bool MasterListener::open(uint32_t ip, uint16_t port)
{
    return service->open(ip, port);
}

uint16_t MasterListener::getPort() const
{
    return service->getPort();
}

bool MasterListener::send(uint64_t connectionNumber, const MasterDaemonMessage& message)
{
    return service->send(connectionNumber, message);
}

} // namespace quelta
