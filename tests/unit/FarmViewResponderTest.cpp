#include "farm_view/Responder.h"

#include <gtest/gtest.h>

#include "farm_view/FarmJson.h"
#include "farm_view/FarmPage.h"
#include "farm_view/Metrics.h"
#include "support/FarmView.h"

namespace quelta::farmview {

namespace {

constexpr MasterAddress served{0x0A000005, 8080};

class FarmViewResponder : public testing::Test
{
protected:
    FarmViewResponder() { model.update(freeNode("127.0.0.1:5130"), sampleTime()); }

    Response respond(const Request& request) const
    {
        return responder.respond(request, served, sampleTime());
    }

    static Request makeRequest(const std::string& target, http::verb method = http::verb::get)
    {
        Request request(method, target, 11);
        request.set(http::field::host, "10.0.0.5:8080");
        return request;
    }

    Response get(const std::string& target) const { return respond(makeRequest(target)); }

    http::status statusForHost(const std::string& host) const
    {
        auto request = makeRequest("/metrics");
        request.set(http::field::host, host);
        return respond(request).result();
    }

    FarmModel model{sampleTime()};
    Responder responder{model, [] { return ProcessFigures{}; }};
};

std::string header(const Response& response, const char* name)
{
    return std::string(response[name]);
}

TEST_F(FarmViewResponder, AnswersEachTarget)
{
    EXPECT_EQ(get("/").body(), farmPage());
    EXPECT_EQ(get("/metrics").body(), formatMetrics(model, {}, sampleTime()));
    EXPECT_EQ(get("/api/v1/nodes").body(), formatNodes(model, sampleTime()));
    EXPECT_EQ(get("/api/v1/history").body(), formatHistory(model, sampleTime()));
    EXPECT_EQ(get("/api/v1/nodes/127.0.0.1:5130").body(),
              formatNodeWithHistory(model.getNodes().at("127.0.0.1:5130")));

    EXPECT_EQ(header(get("/"), "Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(header(get("/metrics"), "Content-Type"), "text/plain; version=0.0.4; charset=utf-8");
    EXPECT_EQ(header(get("/api/v1/nodes"), "Content-Type"), "application/json");
}

TEST_F(FarmViewResponder, IgnoresQueries)
{
    EXPECT_EQ(get("/?a=b").body(), farmPage());
    EXPECT_EQ(get("/api/v1/nodes?").body(), get("/api/v1/nodes").body());
}

TEST_F(FarmViewResponder, DecodesTheNameOfANode)
{
    EXPECT_EQ(get("/api/v1/nodes/127.0.0.1%3A5130").result(), http::status::ok);
    EXPECT_EQ(get("/api/v1/nodes/127.0.0.1%3a5130").result(), http::status::ok);

    for (const auto* name : {"%", "%3", "a%zz", "127.0.0.1%3"})
    {
        const auto response = get(std::string("/api/v1/nodes/") + name);
        EXPECT_EQ(response.result(), http::status::bad_request) << name;
        EXPECT_EQ(response.body(), R"({"error":"the name is not percent-encoded"})");
    }
}

TEST_F(FarmViewResponder, ReportsUnknownTargetsAndNodes)
{
    for (const auto* target : {"/index.html", "/api/v1/nodes/", "/api/v1/nodes/b:2", "/api", "*",
                               "http://10.0.0.5:8080/", "//", "/../"})
        EXPECT_EQ(get(target).result(), http::status::not_found) << target;

    EXPECT_EQ(get("/x").body(), R"({"error":"there is no such page"})");
    EXPECT_EQ(get("/api/v1/nodes/b:2").body(), R"({"error":"there is no such node"})");
}

TEST_F(FarmViewResponder, AnswersOnlyReadingMethods)
{
    for (const auto method :
         {http::verb::post, http::verb::put, http::verb::delete_, http::verb::options,
          http::verb::patch, http::verb::trace, http::verb::connect, http::verb::unknown})
    {
        auto request = makeRequest("/");

        if (method == http::verb::unknown)
            request.method_string("BREW");
        else
            request.method(method);

        const auto response = respond(request);
        EXPECT_EQ(response.result(), http::status::method_not_allowed) << request.method_string();
        EXPECT_EQ(header(response, "Allow"), "GET, HEAD");
        EXPECT_EQ(response.body(), R"({"error":"only GET and HEAD are allowed"})");
    }
}

TEST_F(FarmViewResponder, HeadHasTheHeadersOfGetOnly)
{
    const auto response = respond(makeRequest("/", http::verb::head));
    EXPECT_EQ(response.result(), http::status::ok);
    EXPECT_TRUE(response.body().empty());
    EXPECT_EQ(header(response, "Content-Length"), std::to_string(farmPage().size()));
}

TEST_F(FarmViewResponder, AcceptsOnlyHostsThatNameItsAddress)
{
    for (const auto* host : {"10.0.0.5:8080", "localhost:8080", "LocalHost:8080"})
        EXPECT_EQ(statusForHost(host), http::status::ok) << host;

    for (const auto* host :
         {"", "10.0.0.5", "10.0.0.5:8081", "10.0.0.6:8080", "localhost", "evil.example:8080",
          "localhost.evil.example:8080", "10.0.0.5:8080.evil.example", "10.0.0.5:80800",
          "user@10.0.0.5:8080", "010.0.0.5:8080"})
        EXPECT_EQ(statusForHost(host), http::status::misdirected_request) << host;
}

TEST_F(FarmViewResponder, RejectsMissingAndRepeatedHosts)
{
    auto request = makeRequest("/");
    request.insert(http::field::host, "10.0.0.5:8080");
    EXPECT_EQ(respond(request).result(), http::status::misdirected_request);
    request.erase(http::field::host);
    const auto response = respond(request);
    EXPECT_EQ(response.result(), http::status::misdirected_request);
    EXPECT_EQ(response.body(),
              R"({"error":"the Host header is not the address that this view is served at, )"
              R"(10.0.0.5:8080"})");
}

TEST_F(FarmViewResponder, PortOfHttpMayBeLeftOut)
{
    auto request = makeRequest("/");
    const MasterAddress standard{0x0A000005, 80};

    for (const auto* host : {"10.0.0.5", "10.0.0.5:80", "localhost"})
    {
        request.set(http::field::host, host);
        EXPECT_EQ(responder.respond(request, standard, sampleTime()).result(), http::status::ok);
    }
}

TEST_F(FarmViewResponder, EveryAnswerForbidsWhatThePageDoesNotNeed)
{
    for (const auto& response : {get("/"), get("/metrics"), get("/none"), get("/api/v1/events"),
                                 refuse(http::status::bad_request, "malformed request")})
    {
        const auto policy = header(response, "Content-Security-Policy");
        EXPECT_EQ(policy.rfind("default-src 'none'; ", 0), 0U) << policy;
        EXPECT_NE(policy.find("frame-ancestors 'none'"), std::string::npos) << policy;
        EXPECT_EQ(policy.find("unsafe"), std::string::npos) << policy;
        EXPECT_EQ(header(response, "X-Content-Type-Options"), "nosniff");
        EXPECT_EQ(header(response, "Referrer-Policy"), "no-referrer");
        EXPECT_EQ(header(response, "Cross-Origin-Resource-Policy"), "same-origin");
        EXPECT_EQ(header(response, "Cache-Control"), "no-store");
        EXPECT_EQ(response.count(http::field::access_control_allow_origin), 0U);
    }
}

TEST_F(FarmViewResponder, EventsBeginWithAllNodesAndHaveNoLength)
{
    const auto request = makeRequest("/api/v1/events");
    const auto response = respond(request);
    EXPECT_TRUE(Responder::isEventStream(request, response));
    EXPECT_EQ(header(response, "Content-Type"), "text/event-stream");
    EXPECT_EQ(response.count(http::field::content_length), 0U);
    EXPECT_FALSE(response.keep_alive());
    EXPECT_EQ(response.body(),
              "retry: 2000\nevent: nodes\ndata: " + formatNodes(model, sampleTime()) + "\n\n");
}

TEST_F(FarmViewResponder, OnlyAnAnsweredGetBeginsEvents)
{
    const auto head = makeRequest("/api/v1/events", http::verb::head);
    EXPECT_FALSE(Responder::isEventStream(head, respond(head)));
    EXPECT_TRUE(respond(head).body().empty());

    auto foreign = makeRequest("/api/v1/events");
    foreign.set(http::field::host, "evil.example:8080");
    EXPECT_FALSE(Responder::isEventStream(foreign, respond(foreign)));

    const auto other = makeRequest("/api/v1/nodes");
    EXPECT_FALSE(Responder::isEventStream(other, respond(other)));
}

TEST_F(FarmViewResponder, KeepsTheConnectionAsAsked)
{
    EXPECT_TRUE(get("/").keep_alive());
    auto closing = makeRequest("/");
    closing.set(http::field::connection, "close");
    EXPECT_FALSE(respond(closing).keep_alive());
    EXPECT_FALSE(refuse(http::status::bad_request, "x").keep_alive());
}

} // namespace

} // namespace quelta::farmview
