// The connection of a client. Answers its requests one after another; a request for events makes it
// a viewer, to which the server sends them until the connection ends. Everything runs on the
// server's thread. Pending operations and, while it is a viewer, its owner keep the object alive.
#pragma once

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/parser.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "farm_view/HttpLimits.h"
#include "farm_view/Responder.h"

namespace quelta::farmview {

class HttpConnection;

/** What a connection needs from its server, which outlives it. */
class HttpConnectionOwner
{
public:
    virtual ~HttpConnectionOwner() = default;

    /** The response to a request. */
    virtual Response respond(const Request& request, const MasterAddress& served) = 0;

    /** Whether a client may make another request now. */
    virtual bool admit(uint32_t client) = 0;

    /** Called when a connection has become a viewer, and when it has failed since. */
    virtual void addViewer(const std::shared_ptr<HttpConnection>& viewer) = 0;
    virtual void removeViewer(const std::shared_ptr<HttpConnection>& viewer) = 0;

    /** Called once at the end of each connection. */
    virtual void connectionEnded() = 0;
};

class HttpConnection final : public std::enable_shared_from_this<HttpConnection>
{
public:
    using Message = std::shared_ptr<const std::string>;

    HttpConnection(boost::asio::ip::tcp::socket socket, const HttpLimits& givenLimits,
                   HttpConnectionOwner& givenOwner);
    ~HttpConnection();

    /** Reads the first request. */
    void start();

    /** Sends an event to a viewer. Returns false after closing the connection of a viewer that has
        left too much unread. */
    bool send(const Message& message);

private:
    using Error = boost::beast::error_code;

    void read();
    void handle(Error error);
    Response makeResponse(Error error);
    void write();
    void finish(Error error);
    void close();
    void drain();
    void watchForEnd();
    void writeEvents();
    void finishEvents(Error error);

    const HttpLimits& limits; ///< Of the owner.
    HttpConnectionOwner& owner;
    boost::beast::tcp_stream stream;
    MasterAddress served;
    uint32_t client = 0;

    boost::beast::flat_buffer buffer;
    std::optional<http::request_parser<http::empty_body>> parser;
    Response response;

    bool isViewer = false;
    std::array<char, 1> discarded{};
    bool isWriting = false;
    std::vector<Message> unsent;
    std::vector<Message> inFlight;
    size_t unreadBytes = 0; ///< Of both.
};

} // namespace quelta::farmview
