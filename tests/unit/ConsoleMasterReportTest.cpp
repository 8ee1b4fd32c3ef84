#include "console_master/Report.h"

#include <string>

#include <gtest/gtest.h>

#include "support/OneNode.h"

namespace quelta::test {
namespace {

TEST(ConsoleMasterReport, TableHasAHeadingAndALineForEveryNode)
{
    OneNode scan(Command::scan);
    scan.board.addNode("render07:5130", OneNode::self, 0);
    scan.connect();
    scan.receive(MasterMessageType::DAEMON_STATUS, OneNode::other);
    scan.board.tick(OneNode::timeoutMs);
    EXPECT_EQ(formatTable(scan.board.getNodes()),
              "NODE           ALIAS  GPUS  VERSION  STATE      OWNER           OWNER'S TEXT\n"
              "n:1            node7  2     4000001  owned      10.0.0.5:21001  rig\n"
              "render07:5130                        no answer\n");
}

TEST(ConsoleMasterReport, JsonHasNullForUnknownValues)
{
    OneNode scan(Command::scan);
    scan.board.addNode("m:2", OneNode::self, 0);
    scan.connect();
    scan.receive(MasterMessageType::DAEMON_STATUS, OneNode::other);
    scan.board.tick(OneNode::timeoutMs);
    EXPECT_EQ(
        formatJson(scan.board.getNodes()),
        "[\n  {\n    \"node\": \"n:1\",\n    \"state\": \"owned\",\n    \"alias\": \"node7\",\n"
        "    \"gpus\": 2,\n    \"slaveVersion\": 4000001,\n    \"owner\": \"10.0.0.5:21001\",\n"
        "    \"ownerText\": \"rig\"\n  },\n  {\n    \"node\": \"m:2\",\n"
        "    \"state\": \"no answer\",\n    \"alias\": null,\n    \"gpus\": null,\n"
        "    \"slaveVersion\": null,\n    \"owner\": null,\n    \"ownerText\": null\n  }\n]\n");
}

TEST(ConsoleMasterReport, EventsAreOneLineOfTextOrJson)
{
    auto held = OneNode::held();
    EXPECT_EQ(formatEvent(held.node(), NodeEvent::starting), "n:1 starting for 127.0.0.1:21000");
    EXPECT_EQ(formatEvent(held.node(), NodeEvent::running), "n:1 running");
    EXPECT_EQ(
        formatJsonEvent(held.node(), NodeEvent::running, "T"),
        R"({"time":"T","event":"running","node":"n:1","state":"running","alias":"node7","gpus":2,)"
        R"("slaveVersion":4000001,"owner":"127.0.0.1:21000","ownerText":"rig"})");

    held.receive(MasterMessageType::DAEMON_STATUS, OneNode::other);
    EXPECT_EQ(formatEvent(held.node(), NodeEvent::stolen),
              "n:1 stolen by 10.0.0.5:21001 (\"rig\")");
    EXPECT_EQ(
        formatEvent(held.node(), NodeEvent::found),
        "n:1 found: alias \"node7\", 2 GPUs, version 4000001, owned by 10.0.0.5:21001 (\"rig\")");
    EXPECT_EQ(formatListening(OneNode::self), "listening as 127.0.0.1:21000");
    EXPECT_EQ(formatJsonListening(OneNode::self, "T"),
              R"({"time":"T","event":"listening","address":"127.0.0.1:21000"})");
}

TEST(ConsoleMasterReport, TextsFromANodeAreShownWithoutControlCharacters)
{
    OneNode scan(Command::scan);
    auto message = OneNode::record(MasterMessageType::DAEMON_STATUS, OneNode::nobody);
    message.slaveAlias = std::string("a\x1b[2J\n\xc3\xa9\xc2\x9b\0hidden", 17);
    scan.board.received(0, message, 0);
    EXPECT_EQ(formatEvent(scan.node(), NodeEvent::found),
              "n:1 found: alias \"a?[2J?\xc3\xa9?\", 2 GPUs, version 4000001, free");

    message.slaveAlias = "\xff\xfe broken";
    scan.board.received(0, message, 0);
    EXPECT_EQ(formatEvent(scan.node(), NodeEvent::found),
              "n:1 found: alias \"?? broken\", 2 GPUs, version 4000001, free");

    message.slaveAlias = "\xe0\x8a\x98 overlong";
    scan.board.received(0, message, 0);
    EXPECT_EQ(formatEvent(scan.node(), NodeEvent::found),
              "n:1 found: alias \"??? overlong\", 2 GPUs, version 4000001, free");
}

} // namespace
} // namespace quelta::test
