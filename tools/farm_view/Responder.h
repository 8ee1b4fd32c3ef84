// Turns an HTTP request into the response: pure functions of the request, the model and the time.
//
// Only GET and HEAD are answered. The Host header must name the address that the view is served
// at: a page of a foreign site whose name has been rebound to this address still sends its own
// name. Every answer forbids what the page does not need.
#pragma once

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <cstdint>
#include <functional>
#include <string_view>

#include "farm_view/FarmModel.h"
#include "farm_view/ProcessFigures.h"
#include "messages/MasterAddress.h"

namespace quelta::farmview {

namespace http = boost::beast::http;

using Request = http::request<http::empty_body>;
using Response = http::response<http::string_body>;

/** The longest request line and headers together, in bytes. */
constexpr uint32_t maxHeaderSize = 8192;

class Responder
{
public:
    using ReadProcess = std::function<ProcessFigures()>;

    /** Calls `givenReadProcess` for each request for metrics. The model must outlive the
        responder. */
    Responder(const FarmModel& givenModel, ReadProcess givenReadProcess);

    /** The response to a request that came to the local address `served`. */
    Response respond(const Request& request, const MasterAddress& served, Time now) const;

    /** Whether events follow the headers of this response to `request`. */
    static bool isEventStream(const Request& request, const Response& response);

private:
    void answer(const Request& request, Time now, Response& response) const;
    void answerNode(std::string_view name, Response& response) const;

    const FarmModel& model;
    const ReadProcess readProcess;
};

/** A response that ends its connection, for requests that cannot be read or are too many. */
Response refuse(http::status status, std::string_view reason);

} // namespace quelta::farmview
