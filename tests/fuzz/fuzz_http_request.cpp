// What a client sends to the farm view: from the bytes of a request to the bytes of the response.
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/write.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "farm_view/Responder.h"

using namespace quelta::farmview;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static constexpr quelta::MasterAddress served{0x7F000001, 8080};
    static FarmModel model{Time{}};
    static const Responder responder(model, [] { return ProcessFigures{}; });
    model.update({"127.0.0.1:5130", NodeState::free, Slave{"demo", 1, 4000000}, {}}, Time{});

    http::request_parser<http::empty_body> parser;
    parser.header_limit(maxHeaderSize);
    parser.body_limit(0);
    boost::beast::error_code error;
    parser.put(boost::asio::buffer(data, size), error);

    if (error || !parser.is_header_done())
        return 0;

    const auto& request = parser.get();
    auto response = responder.respond(request, served, Time{});
    const auto host = request[http::field::host];
    const bool isRead = request.method() == http::verb::get || request.method() == http::verb::head;

    if (response.result() == http::status::ok &&
        (!isRead || (host != "127.0.0.1:8080" && !boost::beast::iequals(host, "localhost:8080"))))
        std::abort();

    std::ostringstream text;
    text << response;

    if (text.str().find("\r\nContent-Security-Policy: default-src 'none'; ") == std::string::npos)
        std::abort();

    return 0;
}
