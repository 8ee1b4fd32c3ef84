#include "farm_view/HttpConnection.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/bind_handler.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <utility>

namespace quelta::farmview {

namespace {

constexpr std::chrono::seconds closeLimit{1};

/** Whether the error is about the request's content rather than its connection. */
bool isMalformed(const boost::beast::error_code& error)
{
    return error.category() == http::make_error_code(http::error::bad_method).category() &&
           error != http::error::end_of_stream && error != http::error::partial_message;
}

} // namespace

HttpConnection::HttpConnection(boost::asio::ip::tcp::socket socket, const HttpLimits& givenLimits,
                               HttpConnectionOwner& givenOwner)
    : limits(givenLimits), owner(givenOwner), stream(std::move(socket)), buffer(2 * maxHeaderSize)
{
    Error ignored;
    const auto local = stream.socket().local_endpoint(ignored);
    const auto remote = stream.socket().remote_endpoint(ignored);
    served = {local.address().to_v4().to_uint(), local.port()};
    client = remote.address().to_v4().to_uint();
}

HttpConnection::~HttpConnection()
{
    owner.connectionEnded();
}

void HttpConnection::start()
{
    // Events are small and must not wait for the acknowledgement of earlier ones.
    Error ignored;
    stream.socket().set_option(boost::asio::ip::tcp::no_delay(true), ignored);
    read();
}

void HttpConnection::read()
{
    parser.emplace();
    parser->header_limit(maxHeaderSize);
    parser->body_limit(0);
    stream.expires_after(limits.request);
    http::async_read_header(
        stream, buffer, *parser,
        [self = shared_from_this()](Error error, size_t) { self->handle(error); });
}

void HttpConnection::handle(Error error)
{
    if (error && !isMalformed(error))
        return;

    response = makeResponse(error);
    isViewer = !error && Responder::isEventStream(parser->get(), response);

    if (isViewer)
    {
        owner.addViewer(shared_from_this());
        watchForEnd();
    }

    write();
}

Response HttpConnection::makeResponse(Error error)
{
    if (error == http::error::header_limit || error == http::error::buffer_overflow)
        return refuse(http::status::request_header_fields_too_large, "the headers are too long");

    if (error == http::error::body_limit || (!error && !parser->is_done()))
        return refuse(http::status::payload_too_large, "requests must not have a body");

    if (error)
        return refuse(http::status::bad_request, "malformed request");

    if (!owner.admit(client))
        return refuse(http::status::too_many_requests, "too many requests; slow down");

    return owner.respond(parser->get(), served);
}

void HttpConnection::write()
{
    isWriting = true;
    stream.expires_after(limits.response);
    http::async_write(stream, response,
                      [self = shared_from_this()](Error error, size_t) { self->finish(error); });
}

void HttpConnection::finish(Error error)
{
    response.body() = {};

    // The end of a response without a length is the end of its connection, which is still to come.
    if (isViewer)
        finishEvents(error == http::error::end_of_stream ? Error() : error);
    else if (!error && response.keep_alive())
        read();
    else if (!error)
        close();
}

/** Closes the connection once the client has closed it, or after a short time. Closing it with
    unread bytes would reset it, and the client could lose the response. */
void HttpConnection::close()
{
    Error ignored;
    stream.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
    stream.expires_after(closeLimit);
    drain();
}

void HttpConnection::drain()
{
    buffer.clear();
    stream.async_read_some(buffer.prepare(maxHeaderSize),
                           [self = shared_from_this()](Error error, size_t) {
                               if (!error)
                                   self->drain();
                           });
}

/** Ends the connection when the viewer closes it or sends anything. Bypasses the timer of the
    stream, which serves the writes. */
void HttpConnection::watchForEnd()
{
    stream.socket().async_read_some(boost::asio::buffer(discarded),
                                    [self = shared_from_this()](Error, size_t) {
                                        self->stream.close();
                                        self->owner.removeViewer(self);
                                    });
}

bool HttpConnection::send(const Message& message)
{
    unreadBytes += message->size();

    if (unreadBytes > limits.unreadBytes)
    {
        stream.close();
        return false;
    }

    unsent.push_back(message);

    if (!isWriting)
        writeEvents();

    return true;
}

void HttpConnection::writeEvents()
{
    isWriting = true;
    inFlight = std::exchange(unsent, {});
    std::vector<boost::asio::const_buffer> buffers;

    for (const auto& message : inFlight)
        buffers.emplace_back(message->data(), message->size());

    stream.expires_after(limits.events);
    boost::asio::async_write(stream, buffers, [self = shared_from_this()](Error error, size_t) {
        self->finishEvents(error);
    });
}

void HttpConnection::finishEvents(Error error)
{
    isWriting = false;

    for (const auto& message : std::exchange(inFlight, {}))
        unreadBytes -= message->size();

    if (error)
        owner.removeViewer(shared_from_this());
    else if (!unsent.empty())
        writeEvents();
}

} // namespace quelta::farmview
