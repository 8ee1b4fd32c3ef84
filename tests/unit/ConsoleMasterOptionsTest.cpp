#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <juce_core/juce_core.h>

#include "console_master/HostList.h"
#include "console_master/Options.h"

namespace quelta {

namespace {

constexpr MasterAddress rig{0x0A000005, 21001};

struct Parsed
{
    std::optional<int> status;
    Options options;
    std::string out, err;
};

Parsed parse(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "quelta_master");
    Parsed parsed;
    std::ostringstream out, err;
    parsed.status = parseOptions(arguments, parsed.options, out, err);
    parsed.out = out.str();
    parsed.err = err.str();
    return parsed;
}

} // namespace

TEST(ConsoleMasterHostList, ReadsNodesSeparatedByBlanksCommasAndLineEndsAndSkipsComments)
{
    std::vector<NodeName> nodes;
    EXPECT_EQ(addNodes(" 10.0.0.5:5130,render07:1 # the old one:5\n\tnode-1:65535\r\n", nodes), "");
    EXPECT_EQ(nodes,
              (std::vector<NodeName>{{"10.0.0.5", 5130}, {"render07", 1}, {"node-1", 65535}}));
}

TEST(ConsoleMasterHostList, ReportsTheFirstInvalidNode)
{
    for (const std::string bad :
         {"host", ":5130", "host:", "host:0", "host:65536", "host:+1", "host:1x"})
    {
        std::vector<NodeName> nodes;
        EXPECT_EQ(addNodes("good:1 " + bad + " worse", nodes),
                  "\"" + bad + "\" is not a node: give host:port, for example 10.0.0.5:5130");
    }
}

TEST(ConsoleMasterHostList, RejectsARepeatedNode)
{
    std::vector<NodeName> nodes;
    EXPECT_EQ(addNodes("a:1 a:2", nodes), "");
    EXPECT_EQ(addNodes("b:1,a:2", nodes), "node a:2 is given twice");
}

TEST(ConsoleMasterHostList, AcceptsOnlyCompleteDottedAddresses)
{
    EXPECT_EQ(parseIp("10.0.0.5"), 0x0A000005u);
    EXPECT_EQ(parseIp("255.255.255.255"), 0xFFFFFFFFu);

    for (const auto* bad :
         {"", "10.0.0", "10.0.0.256", "10.0.0.5.1", "10.0.0.5 ", "a.b.c.d", "10..0.5"})
        EXPECT_EQ(parseIp(bad), std::nullopt) << bad;

    EXPECT_EQ(parseAddress("10.0.0.5:21001"), rig);
    EXPECT_EQ(parseAddress("render07:21001"), std::nullopt);
}

TEST(ConsoleMasterOptions, ReadsEveryOption)
{
    const auto parsed =
        parse({"stop", "a:1", "b:2", "--address", "127.0.0.1", "--listen-port", "21000",
               "--timeout", "0.25", "--text", "me", "--json", "--as", "10.0.0.5:21001"});
    EXPECT_EQ(parsed.status, std::nullopt);
    EXPECT_EQ(parsed.options.command, Command::stop);
    EXPECT_EQ(parsed.options.nodes, (std::vector<NodeName>{{"a", 1}, {"b", 2}}));
    EXPECT_EQ(parsed.options.address, 0x7F000001u);
    EXPECT_EQ(parsed.options.listenPort, 21000);
    EXPECT_EQ(parsed.options.timeoutMs, 250u);
    EXPECT_EQ(parsed.options.text, "me");
    EXPECT_TRUE(parsed.options.json);
    EXPECT_EQ(parsed.options.actAs, rig);
}

TEST(ConsoleMasterOptions, ScanNeedsNodesOrABroadcast)
{
    const auto bare = parse({"scan"});
    EXPECT_EQ(bare.status, exitUsage);
    EXPECT_EQ(bare.err,
              "no nodes given: name them as host:port, for example 10.0.0.5:5130\n"
              "Run with --help for more information.\n");

    const auto broadcast = parse({"scan", "--broadcast", "10.0.0.255:5130"});
    EXPECT_EQ(broadcast.status, std::nullopt);
    EXPECT_EQ(broadcast.options.broadcast, (NodeName{"10.0.0.255", 5130}));
}

TEST(ConsoleMasterOptions, ReadsAFileOfNodesWithAUnicodeName)
{
    const juce::TemporaryFile folder;
    const auto file =
        folder.getFile().getChildFile(juce::String::fromUTF8("Gr\xc3\xb6\xc3\x9f"
                                                             "e \xd0\x96.txt"));
    ASSERT_TRUE(file.create().wasOk());
    std::string text = "a:1\r\nb:2 # ";
    text.append(10000, 'x');
    ASSERT_TRUE(file.replaceWithData((text + "\nc:3").data(), text.size() + 4));

    const auto name = file.getFullPathName().toStdString();
    const auto parsed = parse({"scan", "--nodes", name});
    EXPECT_TRUE(folder.getFile().deleteRecursively());
    EXPECT_EQ(parsed.err, "");
    EXPECT_EQ(parsed.status, std::nullopt);
    EXPECT_EQ(parsed.options.nodes, (std::vector<NodeName>{{"a", 1}, {"b", 2}, {"c", 3}}));
}

TEST(ConsoleMasterOptions, ReportsWhyAFileOfNodesCannotBeRead)
{
    const auto folder =
        juce::File::getSpecialLocation(juce::File::tempDirectory).getFullPathName().toStdString();
    const auto ofFolder = parse({"scan", "--nodes", folder});
    EXPECT_EQ(ofFolder.status, exitUsage);
    EXPECT_EQ(ofFolder.err, "cannot read the file of nodes \"" + folder +
                                "\": it is a folder\nRun with --help for more information.\n");

    const auto missing = juce::TemporaryFile().getFile().getFullPathName().toStdString();
    const auto ofMissing = parse({"scan", "--nodes", missing});
    EXPECT_EQ(ofMissing.status, exitUsage);
    EXPECT_EQ(ofMissing.err,
              "cannot read the file of nodes \"" + missing +
                  "\": No such file or directory\nRun with --help for more information.\n");
}

TEST(ConsoleMasterOptions, HelpExitsWithZeroAndInvalidUsageWithTwo)
{
    const auto help = parse({"--help"});
    EXPECT_EQ(help.status, exitAsAsked);
    EXPECT_NE(help.out.find("Exit status: 0 every node did as asked"), std::string::npos);
    EXPECT_EQ(help.err, "");

    const std::string longText(33, 'x');
    EXPECT_EQ(parse({}).status, exitUsage);
    EXPECT_EQ(parse({"scan", "a"}).status, exitUsage);
    EXPECT_EQ(parse({"scan", "a:1", "--listen-port", "65536"}).status, exitUsage);
    EXPECT_EQ(parse({"scan", "a:1", "--address", "here"}).status, exitUsage);
    EXPECT_EQ(parse({"scan", "a:1", "--timeout", "0"}).status, exitUsage);
    EXPECT_EQ(parse({"scan", "a:1", "--text", longText}).status, exitUsage);
    EXPECT_EQ(parse({"scan", "a:1", "--as", "10.0.0.5:1"}).status, exitUsage);
    EXPECT_EQ(parse({"hold", "a:1", "--broadcast", "10.0.0.255:1"}).status, exitUsage);
}

} // namespace quelta
