#include "farm_view/Responder.h"

#include <optional>
#include <string>
#include <utility>

#include "farm_view/FarmJson.h"
#include "farm_view/FarmPage.h"
#include "farm_view/Metrics.h"

namespace quelta::farmview {

namespace {

constexpr std::string_view nodesTarget = "/api/v1/nodes";
constexpr std::string_view eventsTarget = "/api/v1/events";
constexpr auto jsonType = "application/json";
constexpr auto nothingPolicy = "default-src 'none'; frame-ancestors 'none'";

std::string_view view(boost::beast::string_view text)
{
    return {text.data(), text.size()};
}

/** HTTP compares host names without regard to case. */
bool isHost(std::string_view given, const std::string& host, uint16_t port)
{
    const auto whole = host + ":" + std::to_string(port);
    return boost::beast::iequals({given.data(), given.size()}, whole) ||
           (port == 80 && boost::beast::iequals({given.data(), given.size()}, host));
}

bool isServed(const Request& request, const MasterAddress& served)
{
    if (request.count(http::field::host) != 1)
        return false;

    const auto host = view(request[http::field::host]);
    return isHost(host, "localhost", served.port) || isHost(host, formatIp(served.ip), served.port);
}

int hexValue(char c)
{
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

/** Resolves %XX; empty if one is malformed. */
std::optional<std::string> percentDecoded(std::string_view text)
{
    std::string decoded;

    for (size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] != '%')
        {
            decoded += text[i];
            continue;
        }

        const int high = i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
        const int low = high >= 0 ? hexValue(text[i + 2]) : -1;

        if (low < 0)
            return std::nullopt;

        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }

    return decoded;
}

std::string_view withoutQuery(std::string_view target)
{
    return target.substr(0, target.find('?'));
}

void setBody(Response& response, std::string_view type, std::string body)
{
    response.set(http::field::content_type, {type.data(), type.size()});
    response.body() = std::move(body);
}

void setError(Response& response, http::status status, std::string_view reason)
{
    response.result(status);
    setBody(response, jsonType, formatError(std::string(reason)));
}

Response makeResponse(unsigned version)
{
    Response response(http::status::ok, version);
    response.set(http::field::cache_control, "no-store");
    response.set("Content-Security-Policy", nothingPolicy);
    response.set("Referrer-Policy", "no-referrer");
    response.set("Cross-Origin-Resource-Policy", "same-origin");
    response.set("X-Content-Type-Options", "nosniff");
    return response;
}

} // namespace

Responder::Responder(const FarmModel& givenModel, ReadProcess givenReadProcess)
    : model(givenModel), readProcess(std::move(givenReadProcess))
{}

Response Responder::respond(const Request& request, const MasterAddress& served, Time now) const
{
    auto response = makeResponse(request.version());
    response.keep_alive(request.keep_alive());

    if (request.method() != http::verb::get && request.method() != http::verb::head)
    {
        setError(response, http::status::method_not_allowed, "only GET and HEAD are allowed");
        response.set(http::field::allow, "GET, HEAD");
    }
    else if (!isServed(request, served))
        setError(response, http::status::misdirected_request,
                 "the Host header is not the address that this view is served at, " +
                     formatAddress(served));
    else
        answer(request, now, response);

    if (isEventStream(request, response))
    {
        response.keep_alive(false);
        return response;
    }

    response.content_length(response.body().size());

    if (request.method() == http::verb::head)
        response.body().clear();

    return response;
}

bool Responder::isEventStream(const Request& request, const Response& response)
{
    return request.method() == http::verb::get && response.result() == http::status::ok &&
           withoutQuery(view(request.target())) == eventsTarget;
}

void Responder::answer(const Request& request, Time now, Response& response) const
{
    const auto target = withoutQuery(view(request.target()));

    if (target == "/")
    {
        setBody(response, "text/html; charset=utf-8", std::string(farmPage()));
        response.set("Content-Security-Policy", {farmPagePolicy().data(), farmPagePolicy().size()});
    }
    else if (target == "/metrics")
        setBody(response, metricsType, formatMetrics(model, readProcess(), now));
    else if (target == nodesTarget)
        setBody(response, jsonType, formatNodes(model, now));
    else if (target == "/api/v1/history")
        setBody(response, jsonType, formatHistory(model, now));
    else if (target == eventsTarget)
        setBody(response, "text/event-stream",
                "retry: 2000\n" + formatServerSentEvent("nodes", formatNodes(model, now)));
    else if (target.starts_with(std::string(nodesTarget) + "/"))
        answerNode(target.substr(nodesTarget.size() + 1), response);
    else
        setError(response, http::status::not_found, "there is no such page");
}

void Responder::answerNode(std::string_view name, Response& response) const
{
    const auto decoded = percentDecoded(name);

    if (!decoded)
        return setError(response, http::status::bad_request, "the name is not percent-encoded");

    const auto found = model.getNodes().find(*decoded);

    if (found == model.getNodes().end())
        return setError(response, http::status::not_found, "there is no such node");

    setBody(response, jsonType, formatNodeWithHistory(found->second));
}

Response refuse(http::status status, std::string_view reason)
{
    auto response = makeResponse(11);
    setError(response, status, reason);
    response.keep_alive(false);
    response.prepare_payload();
    return response;
}

} // namespace quelta::farmview
