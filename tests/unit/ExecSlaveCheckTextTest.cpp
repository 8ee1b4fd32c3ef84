#include <string>

#include <gtest/gtest.h>

#include "exec_slave/CheckText.h"

namespace quelta::execslave {

namespace {

PlaceholderValues exampleValues()
{
    PlaceholderValues values;
    values.masterAddress = "192.0.2.1";
    values.masterPort = 21000;
    values.alias = "node1";
    values.gpus = {0, 1};
    return values;
}

/** Returns the rows of `text` from one that begins with `name` to the last that continues it. */
std::string rowsOf(const std::string& name, const std::string& text)
{
    const auto begin = text.find('\n' + name + ' ') + 1;
    auto end = text.find('\n', begin) + 1;

    while (end < text.size() && text[end] == ' ')
        end = text.find('\n', end) + 1;

    return text.substr(begin, end - begin);
}

std::string rowsOf(const std::string& name, const Configuration& configuration)
{
    return rowsOf(name, describeRun(configuration, exampleValues(), {}));
}

} // namespace

TEST(ExecSlaveCheckText, ShowsTheRunForTheExampleMaster)
{
    Configuration configuration;
    configuration.command = {"worker", "--master", "{master_address}:{master_port}", "{alias} x"};
    configuration.folder = "/var/lib/{alias}";
    configuration.version = 4000000;
    configuration.environment = {{"FARM", "{master_address}"}, {"DISPLAY", ""}};

    CheckFacts facts;
    facts.fileName = "/opt/quelta/quelta_exec_slave.toml";
    facts.program = "/usr/bin/worker";
    facts.detected.names = {"RTX 4090", "A40"};
    facts.detected.source = "NVML";
    facts.selection.environment = {{"CUDA_VISIBLE_DEVICES", "0,1"}, {"FARM", "not this"}};
    facts.containment = "control group";

    EXPECT_EQ(describeRun(configuration, exampleValues(), facts),
              "file         /opt/quelta/quelta_exec_slave.toml\n"
              "example      master 192.0.2.1:21000, alias \"node1\"\n"
              "command      worker --master 192.0.2.1:21000 'node1 x'\n"
              "program      /usr/bin/worker\n"
              "folder       /var/lib/node1\n"
              "environment  CUDA_VISIBLE_DEVICES=0,1\n"
              "             DISPLAY is removed\n"
              "             FARM=192.0.2.1\n"
              "version      4000000\n"
              "GPUs         2 found by NVML\n"
              "             0: RTX 4090\n"
              "             1: A40\n"
              "ready        when the program has run for 0.5 s\n"
              "alive        while the program runs\n"
              "stop         send SIGTERM (on Windows Ctrl-Break)\n"
              "             after 9 s kill\n"
              "output       to standard output\n"
              "containment  control group\n");
}

TEST(ExecSlaveCheckText, SaysWhatIsMissing)
{
    Configuration configuration;
    configuration.command = {"worker"};
    configuration.folder = "/gone";
    CheckFacts facts;
    facts.folderExists = false;
    facts.detected.notes = {"NVML hangs"};
    facts.selection.error = "GPU 3 is not there";

    const auto text = describeRun(configuration, exampleValues(), facts);
    EXPECT_EQ(rowsOf("program", text), "program      not found\n");
    EXPECT_EQ(rowsOf("folder", text), "folder       /gone (does not exist)\n");
    EXPECT_EQ(rowsOf("GPUs", text),
              "GPUs         0 found\n"
              "             note: NVML hangs\n"
              "             error: GPU 3 is not there\n");
}

TEST(ExecSlaveCheckText, ShowsTheConfiguredNumberOfGpus)
{
    Configuration configuration;
    configuration.gpus = 4;
    EXPECT_EQ(rowsOf("GPUs", configuration), "GPUs         0 found, 4 configured\n");
}

TEST(ExecSlaveCheckText, ShowsTheVersionCommand)
{
    Configuration configuration;
    configuration.versionCommand = {"blender", "--version"};
    configuration.versionPattern = "Blender (\\d+)";
    EXPECT_EQ(rowsOf("version", configuration),
              "version      from blender --version\n"
              "             by the pattern 'Blender (\\d+)'\n");
}

TEST(ExecSlaveCheckText, ShowsTheConditionOfReadiness)
{
    Configuration configuration;
    configuration.ready.command = {"check", "{alias}"};
    EXPECT_EQ(rowsOf("ready", configuration),
              "ready        when this command ends with 0, within 60 s: check node1\n");
    configuration.ready.tcp = "127.0.0.1:{master_port+1}";
    EXPECT_EQ(rowsOf("ready", configuration),
              "ready        when 127.0.0.1:21001 accepts a connection, within 60 s\n");
    configuration.ready.line = "^worker online";
    EXPECT_EQ(rowsOf("ready", configuration),
              "ready        when a line of output matches '^worker online', within 60 s\n");
}

TEST(ExecSlaveCheckText, ShowsAllConditionsOfHealth)
{
    Configuration configuration;
    configuration.alive.tcp = "127.0.0.1:8000";
    configuration.alive.command = {"check"};
    configuration.alive.period = std::chrono::milliseconds(2500);
    configuration.alive.silence = std::chrono::minutes(10);
    configuration.errors = {"falling back", "error"};
    EXPECT_EQ(rowsOf("alive", configuration),
              "alive        while 127.0.0.1:8000 accepts connections, checked every 2.5 s\n"
              "             and while this command ends with 0, checked every 2.5 s: check\n"
              "             and while the program prints a line every 600 s\n");
    EXPECT_EQ(rowsOf("errors", configuration),
              "errors       a line that matches 'falling back'\n"
              "             a line that matches error\n");
}

TEST(ExecSlaveCheckText, ShowsTheStopLadderAndTheOutput)
{
    Configuration configuration;
    configuration.stop = {"INT", {"tell", "stop"}, std::chrono::seconds(9)};
    configuration.output = {"worker: ", "/log/{alias}.log", 1536, 2};
    EXPECT_EQ(rowsOf("stop", configuration),
              "stop         run tell stop\n"
              "             after 4.5 s, or if that fails, send SIGINT (on Windows Ctrl-Break)\n"
              "             after 9 s kill\n");
    EXPECT_EQ(rowsOf("output", configuration),
              "output       to standard output, after \"worker: \"\n"
              "             to /log/node1.log, up to 1536 bytes; older files kept: 2\n");
    configuration.output.maxSize = int64_t{10} << 20;
    EXPECT_EQ(rowsOf("output", configuration),
              "output       to standard output, after \"worker: \"\n"
              "             to /log/node1.log, up to 10M; older files kept: 2\n");
}

TEST(ExecSlaveCheckText, QuotesWordsThatAShellWouldSplitOrReplace)
{
    EXPECT_EQ(formatCommand({"C:\\Worker\\worker.exe", "--a=b,c", "Größe", "x@y:1%+"}),
              "C:\\Worker\\worker.exe --a=b,c Größe x@y:1%+");
    EXPECT_EQ(formatCommand({"a b", "", "$HOME", "it's", "a\nb", "*"}),
              "'a b' '' '$HOME' 'it'\\''s' 'a?b' '*'");
}

} // namespace quelta::execslave
