#include "farm_view/FarmServer.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "farm_view/FarmJson.h"
#include "farm_view/FarmModel.h"
#include "farm_view/HttpConnection.h"
#include "farm_view/RequestLimiter.h"
#include "farm_view/Responder.h"
#include "farm_view/platform/ExclusiveAddress.h"
#include "farm_view/platform/ReadProcess.h"

namespace quelta::farmview {

namespace {

using boost::asio::ip::tcp;
using Error = boost::system::error_code;

constexpr std::chrono::seconds clockInterval{2};
constexpr std::chrono::milliseconds acceptRetryInterval{100};

Time now()
{
    return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

} // namespace

/** Everything that the server's thread owns. */
class FarmServer::Service final : public HttpConnectionOwner
{
public:
    explicit Service(const HttpLimits& givenLimits) : limits(givenLimits) {}

    ~Service() override;

    std::string open(const MasterAddress& wanted);
    MasterAddress getAddress() const { return address; }

    /** Runs `task` on the server's thread. */
    template <typename Task>
    void post(Task task)
    {
        boost::asio::post(context, std::move(task));
    }

    void update(const NodeStatus& status);
    void remove(const std::string& node);
    void broadcast(const std::string& event, const std::string& data);

    FarmModel model{now()};

private:
    Response respond(const Request& request, const MasterAddress& served) override;
    bool admit(uint32_t client) override;
    void addViewer(const std::shared_ptr<HttpConnection>& viewer) override;
    void removeViewer(const std::shared_ptr<HttpConnection>& viewer) override;
    void connectionEnded() override { --connections; }

    void accept();
    void accepted(Error error, tcp::socket socket);
    void startClock();

    const HttpLimits limits;
    Responder responder{model, readProcessFigures};
    RequestLimiter limiter;
    MasterAddress address;
    size_t connections = 0;

    boost::asio::io_context context{1};
    tcp::acceptor acceptor{context};
    boost::asio::steady_timer acceptTimer{context};
    boost::asio::steady_timer clockTimer{context};
    std::set<std::shared_ptr<HttpConnection>> viewers;
    std::thread thread;
};

FarmServer::Service::~Service()
{
    context.stop();

    if (thread.joinable())
        thread.join();
}

std::string FarmServer::Service::open(const MasterAddress& wanted)
{
    const tcp::endpoint endpoint(boost::asio::ip::address_v4(wanted.ip), wanted.port);
    Error error;
    acceptor.open(endpoint.protocol(), error);

    if (error)
        return error.message();

    makeAddressExclusive(acceptor);

    if (acceptor.bind(endpoint, error) ||
        acceptor.listen(tcp::acceptor::max_listen_connections, error))
        return error.message();

    address = {wanted.ip, acceptor.local_endpoint().port()};
    accept();
    startClock();
    thread = std::thread([this] { context.run(); });
    return {};
}

void FarmServer::Service::update(const NodeStatus& status)
{
    if (model.update(status, now()))
        broadcast("node", formatNode(model.getNodes().at(status.name)));
}

void FarmServer::Service::remove(const std::string& node)
{
    if (model.remove(node))
        broadcast("removed", formatRemoved(node));
}

void FarmServer::Service::broadcast(const std::string& event, const std::string& data)
{
    if (viewers.empty())
        return;

    const auto message = std::make_shared<const std::string>(formatServerSentEvent(event, data));
    std::erase_if(viewers, [&message](const auto& viewer) { return !viewer->send(message); });
}

Response FarmServer::Service::respond(const Request& request, const MasterAddress& served)
{
    return responder.respond(request, served, now());
}

bool FarmServer::Service::admit(uint32_t client)
{
    return limiter.admit(client, RequestLimiter::Clock::now());
}

void FarmServer::Service::addViewer(const std::shared_ptr<HttpConnection>& viewer)
{
    viewers.insert(viewer);
}

void FarmServer::Service::removeViewer(const std::shared_ptr<HttpConnection>& viewer)
{
    viewers.erase(viewer);
}

void FarmServer::Service::accept()
{
    acceptor.async_accept(
        [this](Error error, tcp::socket socket) { accepted(error, std::move(socket)); });
}

void FarmServer::Service::accepted(Error error, tcp::socket socket)
{
    if (!error && connections < limits.connections)
    {
        ++connections;
        std::make_shared<HttpConnection>(std::move(socket), limits, *this)->start();
    }

    if (!error)
        return accept();

    // For instance without a free descriptor: retrying at once would busy-loop.
    acceptTimer.expires_after(acceptRetryInterval);
    acceptTimer.async_wait([this](Error) { accept(); });
}

void FarmServer::Service::startClock()
{
    clockTimer.expires_after(clockInterval);
    clockTimer.async_wait([this](Error) {
        broadcast("time", formatClock(now()));
        limiter.expire(RequestLimiter::Clock::now());
        model.expire(now());
        startClock();
    });
}

FarmServer::FarmServer(const HttpLimits& limits) : service(std::make_unique<Service>(limits)) {}

FarmServer::~FarmServer() = default;

std::string FarmServer::open(const MasterAddress& address)
{
    return service->open(address);
}

MasterAddress FarmServer::getAddress() const
{
    return service->getAddress();
}

void FarmServer::update(const NodeStatus& status)
{
    service->post([this, status] { service->update(status); });
}

void FarmServer::showEvent(const std::string& json)
{
    service->post([this, json] { service->broadcast("event", json); });
}

void FarmServer::addRoundTrip(const std::string& node, RoundTripHistogram::Duration duration)
{
    service->post([this, node, duration] { service->model.addRoundTrip(node, duration); });
}

void FarmServer::remove(const std::string& node)
{
    service->post([this, node] { service->remove(node); });
}

void FarmServer::setExpectedNodes(size_t count)
{
    service->post([this, count] { service->model.setExpectedNodes(count); });
}

} // namespace quelta::farmview
