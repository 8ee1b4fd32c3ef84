// What only the command serve needs: nodes that come and go with the file of nodes.
#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "console_master/NodesFile.h"
#include "console_master/Options.h"
#include "console_master/Report.h"
#include "support/OneNode.h"
#include "support/TemporaryFolder.h"

namespace quelta::test {
namespace {

using Type = MasterMessageType;

TEST(ConsoleMasterNodesFile, ChangeTakesEffectOnceItIsStable)
{
    NodesFileWatch watch({"a:1", ""});
    EXPECT_FALSE(watch.take({"a:1", ""}));
    EXPECT_FALSE(watch.take({"a:1 b", ""}));
    EXPECT_FALSE(watch.take({"a:1 b:2", ""}));
    EXPECT_TRUE(watch.take({"a:1 b:2", ""}));
    EXPECT_FALSE(watch.take({"a:1 b:2", ""}));
}

TEST(ConsoleMasterNodesFile, ChangeThatIsTakenBackHasNoEffect)
{
    NodesFileWatch watch({"a:1", ""});
    EXPECT_FALSE(watch.take({"b:2", ""}));
    EXPECT_FALSE(watch.take({"a:1", ""}));
    EXPECT_FALSE(watch.take({"a:1", ""}));
}

TEST(ConsoleMasterNodesFile, EachErrorTakesEffectOnce)
{
    NodesFileWatch watch({"a:1", ""});
    EXPECT_FALSE(watch.take({"", "No such file"}));
    EXPECT_TRUE(watch.take({"", "No such file"}));
    EXPECT_FALSE(watch.take({"", "No such file"}));
    EXPECT_FALSE(watch.take({"a:1", ""}));
    EXPECT_TRUE(watch.take({"a:1", ""}));
}

TEST(ConsoleMasterServe, ScansAWatchedNode)
{
    OneNode serve(Command::serve);
    serve.connect();
    EXPECT_EQ(serve.sent(), std::vector{Type::SCAN_REQUEST});
    serve.receive(Type::DAEMON_STATUS, OneNode::nobody);
    EXPECT_EQ(serve.told(), std::vector{NodeEvent::found});
    serve.board.tick(NodeBoard::scanIntervalMs);
    EXPECT_EQ(serve.sent(), std::vector{Type::SCAN_REQUEST});
    serve.board.release(2000);
    EXPECT_TRUE(serve.sent().empty());
    EXPECT_TRUE(serve.board.isDone());
}

TEST(ConsoleMasterServe, RemovedNodeIsNotScanned)
{
    OneNode serve(Command::serve);
    serve.connect();
    serve.receive(Type::DAEMON_STATUS, OneNode::nobody);
    serve.board.removeNode(0);
    serve.sent();
    serve.told();
    serve.board.tick(100000);
    serve.receive(Type::DAEMON_STATUS, OneNode::other, 100000);
    serve.board.disconnected(0, 100000);
    EXPECT_TRUE(serve.sent().empty());
    EXPECT_TRUE(serve.told().empty());
}

TEST(ConsoleMasterServe, RestoredNodeBeginsAnew)
{
    OneNode serve(Command::serve);
    serve.connect();
    serve.receive(Type::DAEMON_STATUS, OneNode::nobody);
    serve.board.removeNode(0);
    serve.sent();
    serve.told();

    serve.board.restoreNode(0, 1000);
    EXPECT_STREQ(stateName(serve.node()), "waiting");
    EXPECT_EQ(serve.sent(), std::vector{Type::SCAN_REQUEST});
    serve.receive(Type::DAEMON_STATUS, OneNode::other, 1000);
    EXPECT_EQ(serve.told(), std::vector{NodeEvent::found});
    EXPECT_STREQ(stateName(serve.node()), "owned");
}

TEST(ConsoleMasterServe, RestoredNodeWithoutAConnectionMayStaySilent)
{
    OneNode serve(Command::serve);
    serve.board.removeNode(0);
    serve.board.restoreNode(0, 1000);
    EXPECT_TRUE(serve.sent().empty());
    serve.board.tick(1000 + OneNode::timeoutMs);
    EXPECT_EQ(serve.told(), std::vector{NodeEvent::noAnswer});
    EXPECT_STREQ(stateName(serve.node()), "no answer");
}

struct Parsed
{
    std::optional<int> status;
    Options options;
    std::string err;
};

Parsed parse(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"quelta_master", "serve"});
    Parsed parsed;
    std::ostringstream out;
    std::ostringstream err;
    parsed.status = parseOptions(arguments, parsed.options, out, err);
    parsed.err = err.str();
    return parsed;
}

TEST(ConsoleMasterServe, ServesOnTheLoopbackByDefault)
{
    const auto parsed = parse({"a:1"});
    EXPECT_EQ(parsed.status, std::nullopt);
    EXPECT_EQ(parsed.options.command, Command::serve);
    EXPECT_EQ(parsed.options.httpAddress, (MasterAddress{0x7F000001, 8080}));
}

TEST(ConsoleMasterServe, TakesAnyAddressAndPort)
{
    EXPECT_EQ(parse({"a:1", "--http", "10.0.0.5:80"}).options.httpAddress,
              (MasterAddress{0x0A000005, 80}));
    EXPECT_EQ(parse({"a:1", "--http", "127.0.0.1:0"}).options.httpAddress,
              (MasterAddress{0x7F000001, 0}));

    for (const auto* wrong : {"8080", ":8080", "localhost:8080", "127.0.0.1", "127.0.0.1:65536",
                              "[::1]:8080", "127.0.0.1:", ":0", "x:0"})
    {
        const auto parsed = parse({"a:1", "--http", wrong});
        EXPECT_EQ(parsed.status, exitUsage) << wrong;
        EXPECT_NE(parsed.err.find("is not an address: give IP:port, for example 127.0.0.1:8080"),
                  std::string::npos)
            << parsed.err;
    }
}

TEST(ConsoleMasterServe, RemembersWhichNodesTheFileNames)
{
    const TemporaryFolder folder;
    const auto file = folder.getChild("nodes.txt");
    writeBytes(file, "b:2\nc:3\n");
    const auto name = file.getFullPathName().toStdString();
    const auto parsed = parse({"a:1", "--nodes", name});
    EXPECT_EQ(parsed.options.nodes, (std::vector<NodeName>{{"a", 1}, {"b", 2}, {"c", 3}}));
    EXPECT_EQ(parsed.options.numNodesOfCommandLine, 1U);
    EXPECT_EQ(parsed.options.nodesFile, name);
    EXPECT_EQ(parsed.options.nodesFileReading, (NodesFileReading{"b:2\nc:3\n", ""}));
}

TEST(ConsoleMasterServe, ReportsWhereItServes)
{
    const MasterAddress address{0x7F000001, 8080};
    EXPECT_EQ(formatServing(address), "serving at http://127.0.0.1:8080/");
    EXPECT_EQ(formatJsonServing(address, "now"),
              R"({"time":"now","event":"serving","url":"http://127.0.0.1:8080/"})");
}

} // namespace
} // namespace quelta::test
