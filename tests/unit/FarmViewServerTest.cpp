// The farm view's server on the loopback, with real connections.
#include "farm_view/FarmServer.h"

#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <memory>
#include <string>

#include "support/FarmView.h"
#include "support/HangGuard.h"
#include "support/Wine.h"

namespace quelta::farmview {

namespace {

using boost::asio::ip::tcp;
using Error = boost::system::error_code;

constexpr uint32_t loopbackIp = 0x7F000001;

/** A connection to the server. */
class Client
{
public:
    explicit Client(const MasterAddress& address)
    {
        socket.connect({boost::asio::ip::address_v4(address.ip), address.port});
        host = formatAddress(address);
    }

    void send(const std::string& bytes)
    {
        Error ignored;
        boost::asio::write(socket, boost::asio::buffer(bytes), ignored);
    }

    void ask(const std::string& target)
    {
        send("GET " + target + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n");
    }

    /** Reads up to this text; returns what comes before it, or "" if the connection ends. */
    std::string readUntil(const std::string& text)
    {
        Error error;
        const auto size =
            boost::asio::read_until(socket, boost::asio::dynamic_buffer(buffer), text, error);

        if (error)
            return {};

        const auto found = buffer.substr(0, size - text.size());
        buffer.erase(0, size);
        return found;
    }

    /** Reads until the connection ends. */
    std::string readAll()
    {
        Error ended;
        boost::asio::read(socket, boost::asio::dynamic_buffer(buffer), ended);
        return buffer;
    }

private:
    boost::asio::io_context context;
    tcp::socket socket{context};
    std::string host;
    std::string buffer;
};

class FarmViewServer : public testing::Test
{
protected:
    void open(const HttpLimits& limits = {})
    {
        server = std::make_unique<FarmServer>(limits);
        ASSERT_EQ(server->open({loopbackIp, 0}), "");
    }

    std::unique_ptr<Client> connect() { return std::make_unique<Client>(server->getAddress()); }

    /** A client that has received the headers of its events. */
    std::unique_ptr<Client> openEvents()
    {
        auto client = connect();
        client->ask("/api/v1/events");
        EXPECT_EQ(client->readUntil("\r\n").substr(0, 15), "HTTP/1.1 200 OK");
        client->readUntil("retry: 2000\n");
        return client;
    }

    /** Connects and asks until the server has room for the connection; returns the answer. */
    std::string askUntilAnswered()
    {
        std::string answer;

        while (answer.empty())
        {
            const auto client = connect();
            client->ask("/api/v1/none");
            answer = client->readUntil("}");
        }

        return answer;
    }

    std::unique_ptr<FarmServer> server;

private:
    const test::HangGuard guard;
};

TEST_F(FarmViewServer, SendsChangesInOrderAfterAllNodes)
{
    open();
    server->update(freeNode());
    const auto client = openEvents();
    server->update(ownedNode());
    server->update(ownedNode());
    server->showEvent("{\"event\":\"changed\"}");
    server->remove("a:1");
    server->remove("a:1");
    server->showEvent("{}");

    EXPECT_NE(client->readUntil("\n\n").find("event: nodes\ndata: {\"time\":"), std::string::npos);
    EXPECT_NE(client->readUntil("\n\n").find("event: node\ndata: {\"node\":\"a:1\",\"state\":"
                                             "\"owned\""),
              std::string::npos);
    EXPECT_EQ(client->readUntil("\n\n"), "event: event\ndata: {\"event\":\"changed\"}");
    EXPECT_EQ(client->readUntil("\n\n"), "event: removed\ndata: {\"node\":\"a:1\"}");
    EXPECT_EQ(client->readUntil("\n\n"), "event: event\ndata: {}");
}

TEST_F(FarmViewServer, SendsTheTimeWhileNothingChanges)
{
    open();
    const auto client = openEvents();
    client->readUntil("\n\n");
    EXPECT_EQ(client->readUntil("\n\n").rfind("event: time\ndata: {\"time\":\"", 0), 0U);
}

TEST_F(FarmViewServer, AnswersSeveralRequestsOnAConnection)
{
    open();
    const auto client = connect();
    client->ask("/api/v1/none");
    client->ask("/api/v1/nodes/a:1");
    EXPECT_NE(client->readUntil("}").find("there is no such page"), std::string::npos);
    EXPECT_NE(client->readUntil("}").find("there is no such node"), std::string::npos);
}

TEST_F(FarmViewServer, RefusesWhatIsNoRequest)
{
    open();
    const std::string start = "GET / HTTP/1.1\r\n";
    const std::pair<std::string, std::string> cases[] = {
        {"\x16\x03\x01 not HTTP\r\n\r\n", "HTTP/1.1 400 "},
        {start + "no colon\r\n\r\n", "HTTP/1.1 400 "},
        {start + "Content-Length: 1\r\n\r\nx", "HTTP/1.1 413 "},
        {start + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "HTTP/1.1 413 "},
        {start + "A: " + std::string(9000, 'a') + "\r\n\r\n", "HTTP/1.1 431 "},
        {start + "A: " + std::string(100000, 'a'), "HTTP/1.1 431 "}};

    for (const auto& [request, status] : cases)
    {
        const auto client = connect();
        client->send(request);
        EXPECT_EQ(client->readAll().substr(0, status.size()), status) << request.substr(0, 40);
    }
}

TEST_F(FarmViewServer, RefusesTooManyRequests)
{
    open();
    const auto client = connect();

    for (int i = 0; i < 1000; ++i)
        client->ask("/api/v1/none");

    const auto answers = client->readAll();
    EXPECT_EQ(answers.rfind("HTTP/1.1 404 ", 0), 0U);
    EXPECT_NE(answers.find("HTTP/1.1 429 "), std::string::npos);
}

TEST_F(FarmViewServer, ClosesIdleConnections)
{
    open({.request = std::chrono::milliseconds(50)});
    EXPECT_EQ(connect()->readAll(), "");

    const auto slow = connect();
    slow->send("GET / HT");
    EXPECT_EQ(slow->readAll(), "");
}

TEST_F(FarmViewServer, DropsViewersThatDoNotRead)
{
    open();
    const auto slow = openEvents();
    const auto other = openEvents();
    const std::string event(100000, 'x');
    constexpr size_t numEvents = 200;
    size_t numRead = 0;

    for (size_t i = 0; i < numEvents; ++i)
    {
        server->showEvent(event);

        while (numRead <= i && !other->readUntil("\n\n").empty())
            ++numRead;
    }

    EXPECT_EQ(numRead, numEvents);
    EXPECT_LT(slow->readAll().size(), numEvents * event.size());
}

TEST_F(FarmViewServer, DropsViewersThatAreTooSlow)
{
    if (test::runsUnderWine())
        GTEST_SKIP() << "the end of a large send can crash Wine's server";

    open({.connections = 1, .events = std::chrono::milliseconds(50), .unreadBytes = 100'000'000});
    const auto slow = openEvents();
    server->showEvent(std::string(50'000'000, 'x'));
    EXPECT_NE(askUntilAnswered().find("404"), std::string::npos);
}

TEST_F(FarmViewServer, LimitsTheNumberOfConnections)
{
    open({.connections = 2});
    auto first = openEvents();
    const auto second = openEvents();
    EXPECT_EQ(connect()->readAll(), "");

    first.reset();
    EXPECT_NE(askUntilAnswered().find("404"), std::string::npos);
}

TEST_F(FarmViewServer, EndsConnectionsWithItself)
{
    open();
    const auto viewer = openEvents();
    const auto idle = connect();
    server.reset();
    EXPECT_NE(viewer->readAll().find("event: nodes"), std::string::npos);
    EXPECT_EQ(idle->readAll(), "");
}

TEST_F(FarmViewServer, ReportsAUsedAddress)
{
    open();
    FarmServer other;
    EXPECT_NE(other.open(server->getAddress()), "");
}

TEST_F(FarmViewServer, MayServeAgainAtOnce)
{
    open();
    const auto address = server->getAddress();
    const auto viewer = openEvents();
    server.reset();
    FarmServer next;
    EXPECT_EQ(next.open(address), "");
}

} // namespace

} // namespace quelta::farmview
