#include <string>

#include <gtest/gtest.h>

#include "exec_slave/Placeholders.h"

namespace quelta::execslave {

namespace {

PlaceholderValues exampleValues()
{
    PlaceholderValues values;
    values.masterAddress = "10.0.0.2";
    values.masterPort = 21000;
    values.alias = "node 7 {x}";
    values.gpus = {0, 2, 11};
    values.outOfCore = 8589934592;
    values.headroom = 1073741824;
    return values;
}

std::string expand(const std::string& text)
{
    EXPECT_EQ(findPlaceholderError(text), "");
    return expandPlaceholders(text, exampleValues());
}

} // namespace

TEST(ExecSlavePlaceholders, EachIsReplacedByItsValue)
{
    EXPECT_EQ(expand("{master_address}:{master_port}"), "10.0.0.2:21000");
    EXPECT_EQ(expand("{master_port+0} {master_port+17} {master_port+44535}"), "21000 21017 65535");
    EXPECT_EQ(expand("{gpus}|{gpu_count}|{out_of_core}|{headroom}"),
              "0,2,11|3|8589934592|1073741824");
}

TEST(ExecSlavePlaceholders, BracesInAValueStayAsTheyAre)
{
    EXPECT_EQ(expand("/var/{alias}/log"), "/var/node 7 {x}/log");
}

TEST(ExecSlavePlaceholders, DoubleBracesAreBraces)
{
    EXPECT_EQ(expand("{{\"gpus\": [{gpus}]}}"), "{\"gpus\": [0,2,11]}");
    EXPECT_EQ(expand("{{{alias}}}"), "{node 7 {x}}");
    EXPECT_EQ(expand("{{alias}}"), "{alias}");
}

TEST(ExecSlavePlaceholders, TextWithoutBracesIsUnchanged)
{
    EXPECT_EQ(expand(""), "");
    EXPECT_EQ(expand("Größe $HOME %PATH% \xFF"), "Größe $HOME %PATH% \xFF");
}

TEST(ExecSlavePlaceholders, NoGpusGiveAnEmptyList)
{
    EXPECT_EQ(expandPlaceholders("[{gpus}] {gpu_count}", {}), "[] 0");
}

TEST(ExecSlavePlaceholders, AnUnknownOneIsAnErrorThatNamesTheNearest)
{
    const std::string expected =
        "expected a placeholder ({master_address}, {master_port}, {master_port+N}, {alias}, "
        "{gpus}, "
        "{gpu_count}, {out_of_core} or {headroom}) or {{ for a brace, found ";

    EXPECT_EQ(findPlaceholderError("a {mater_port} b"),
              expected + "\"{mater_port}\"; did you mean {master_port}?");
    EXPECT_EQ(findPlaceholderError("{Alias}"), expected + "\"{Alias}\"; did you mean {alias}?");
    EXPECT_EQ(findPlaceholderError("{}"), expected + "\"{}\"");
    EXPECT_EQ(findPlaceholderError("{a{alias}"), expected + "\"{a{alias}\"; did you mean {alias}?");
}

TEST(ExecSlavePlaceholders, APortOffsetIsADecimalNumber)
{
    const std::string expected =
        "expected a number from 0 to 65535 after \"{master_port+\", found ";

    EXPECT_EQ(findPlaceholderError("{master_port+}"), expected + "\"\"");
    EXPECT_EQ(findPlaceholderError("{master_port+-1}"), expected + "\"-1\"");
    EXPECT_EQ(findPlaceholderError("{master_port+1x}"), expected + "\"1x\"");
    EXPECT_EQ(findPlaceholderError("{master_port+ 1}"), expected + "\" 1\"");
    EXPECT_EQ(findPlaceholderError("{master_port+65536}"), expected + "\"65536\"");
}

TEST(ExecSlavePlaceholders, UnbalancedBracesAreErrors)
{
    EXPECT_EQ(findPlaceholderError("{alias"), "expected } after {, found the end of the text");
    EXPECT_EQ(findPlaceholderError("a{"), "expected } after {, found the end of the text");
    EXPECT_EQ(findPlaceholderError("{{a}"), "expected {NAME} or }} for a brace, found a single }");
    EXPECT_EQ(findPlaceholderError("}"), "expected {NAME} or }} for a brace, found a single }");
}

TEST(ExecSlavePlaceholders, AreReplacedInCommandsFolderFilesEnvironmentAndAddresses)
{
    Configuration configuration;
    configuration.command = {"{gpus}", "b"};
    configuration.folder = "{gpu_count}";
    configuration.versionCommand = {"{headroom}"};
    configuration.environment = {{"{gpus}", "{master_port}"}};
    configuration.ready.tcp = "127.0.0.1:{master_port+1}";
    configuration.ready.command = {"a", "{master_port+2}"};
    configuration.alive.tcp = "127.0.0.1:{master_port+3}";
    configuration.alive.command = {"{master_port+4}"};
    configuration.stop.command = {"{master_port+5}"};
    configuration.output.file = "{master_port+6}";
    configuration.output.prefix = "{gpus}";
    configuration.errors = {"a{2}"};
    configuration.ready.line = "b{3}";
    configuration.versionPattern = "c{4}";

    const auto result = expandPlaceholders(configuration, exampleValues());
    EXPECT_EQ(result.command, (Command{"0,2,11", "b"}));
    EXPECT_EQ(result.folder, "3");
    EXPECT_EQ(result.versionCommand, Command{"1073741824"});
    EXPECT_EQ(result.environment, (std::map<std::string, std::string>{{"{gpus}", "21000"}}));
    EXPECT_EQ(result.ready.tcp, "127.0.0.1:21001");
    EXPECT_EQ(result.ready.command, (Command{"a", "21002"}));
    EXPECT_EQ(result.alive.tcp, "127.0.0.1:21003");
    EXPECT_EQ(result.alive.command, Command{"21004"});
    EXPECT_EQ(result.stop.command, Command{"21005"});
    EXPECT_EQ(result.output.file, "21006");
    EXPECT_EQ(result.output.prefix, "{gpus}");
    EXPECT_EQ(result.errors, std::vector<std::string>{"a{2}"});
    EXPECT_EQ(result.ready.line, "b{3}");
    EXPECT_EQ(result.versionPattern, "c{4}");
}

TEST(ExecSlavePlaceholders, APortAboveTheHighestIsAnErrorOfTheMastersPort)
{
    Configuration configuration;
    configuration.alive.command = {"check", "{master_port+44536}"};

    EXPECT_EQ(findExpansionError(configuration, exampleValues()),
              "expected a port up to 65535, found 65536, which is {master_port+44536} for the "
              "master's port 21000");

    configuration.alive.command = {"check", "{master_port+44535}"};
    EXPECT_EQ(findExpansionError(configuration, exampleValues()), "");
}

} // namespace quelta::execslave
