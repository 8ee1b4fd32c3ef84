#include "app/CommandLine.h"

#include <gtest/gtest.h>

#include <limits>
#include <tuple>
#include <utility>
#include <vector>

#include "support/LogCapture.h"

namespace quelta::test {
namespace {

using GpuIds = juce::Array<int32_t>;

constexpr auto lowest64 = std::numeric_limits<int64_t>::min();
constexpr auto highest64 = std::numeric_limits<int64_t>::max();

class CommandLineTest : public testing::Test
{
protected:
    bool parse(const std::vector<const char*>& parameters)
    {
        juce::StringArray array;

        for (const auto* parameter : parameters)
            array.add(juce::String::fromUTF8(parameter));

        log.clear();
        return parseCommandLine(array, settings, slavePath);
    }

    /** Parses the parameters behind a valid slave and port. */
    bool parseBehindSlaveAndPort(const std::vector<const char*>& parameters)
    {
        std::vector<const char*> all{"--slave", "slave", "--port", "5000"};
        all.insert(all.end(), parameters.begin(), parameters.end());
        return parse(all);
    }

    /** The lines of a parse error: the reason and the syntax. */
    static Lines failure(const std::string& reason)
    {
        const auto program =
            juce::File::getSpecialLocation(juce::File::currentExecutableFile).getFileName();
        return {reason, "\ncommand line syntax:",
                "  " + program.toStdString() +
                    "  --port <daemon port>  --slave \"<path to binary>\"  [--alias \"<slave "
                    "nickname>\"]  "
                    "[--gpus \"<IDs of GPUs to use>\"]  "
                    "[--out-of-core <max OOC memory>[k|K|m|M|g|G][,<headroom>[k|K|m|M|g|G]]",
                "\n  (k/K = KiloByte, m/M = MegaByte, g/G = GigaByte)"};
    }

    LogCapture log;
    DaemonSettings settings;
    juce::String slavePath;
};

TEST_F(CommandLineTest, EveryOptionSetsItsField)
{
    EXPECT_TRUE(parse({"--port", "5130", "--slave", "/opt/q/slave", "--alias", "node7", "--gpus",
                       "1,3", "--out-of-core", "8G,1G"}));
    EXPECT_EQ(slavePath, "/opt/q/slave");
    EXPECT_EQ(settings.slaveAlias, "node7");
    EXPECT_EQ(settings.daemonPort, 5130);
    EXPECT_EQ(settings.gpuIds, (GpuIds{1, 3}));
    EXPECT_EQ(settings.outOfCoreMaxMemory, 8589934592);
    EXPECT_EQ(settings.outOfCoreHeadroom, 1073741824);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(CommandLineTest, OnlySlaveAndPortAreRequired)
{
    EXPECT_TRUE(parse({"--slave", "slave", "--port", "1"}));
    EXPECT_EQ(settings.slaveExecutable, juce::File());
    EXPECT_EQ(settings.slaveAlias, "");
    EXPECT_EQ(settings.gpuIds, GpuIds{});
    EXPECT_EQ(settings.outOfCoreMaxMemory, 0);
    EXPECT_EQ(settings.outOfCoreHeadroom, 0);
}

TEST_F(CommandLineTest, EarlierResultsAreReset)
{
    EXPECT_TRUE(parse({"--slave", "slave", "--port", "5000", "--alias", "a", "--gpus", "2",
                       "--out-of-core", "1,2"}));
    EXPECT_FALSE(parse({}));
    EXPECT_EQ(slavePath, "");
    EXPECT_EQ(settings.slaveAlias, "");
    EXPECT_EQ(settings.daemonPort, 0);
    EXPECT_EQ(settings.gpuIds, GpuIds{});
    EXPECT_EQ(settings.outOfCoreMaxMemory, 0);
    EXPECT_EQ(settings.outOfCoreHeadroom, 0);
}

TEST_F(CommandLineTest, AMissingSlavePathIsAnError)
{
    const auto expected = failure("No path to the Quelta render slave given.");
    EXPECT_FALSE(parse({}));
    EXPECT_EQ(log.lines(), expected);
    EXPECT_FALSE(parse({"--port", "5000"}));
    EXPECT_EQ(log.lines(), expected);
    EXPECT_FALSE(parse({"--slave", "", "--port", "5000"}));
    EXPECT_EQ(log.lines(), expected);
    EXPECT_FALSE(parse({"--port", "5000", "--slave"})); // the value is missing
    EXPECT_EQ(log.lines(), expected);
}

TEST_F(CommandLineTest, AMissingPortIsAnError)
{
    const auto expected = failure("no daemon port specified");

    for (const auto* port : {"", "0", "abc", "65536", "131072", "-0", "-65536"})
    {
        EXPECT_FALSE(parse({"--slave", "slave", "--port", port})) << port;
        EXPECT_EQ(log.lines(), expected) << port;
    }

    EXPECT_FALSE(parse({"--slave", "slave"}));
    EXPECT_EQ(log.lines(), expected);
}

TEST_F(CommandLineTest, APortIsTheLeadingNumberModulo65536)
{
    const std::vector<std::pair<const char*, uint16_t>> ports{
        {"70000", 4464},      {"65535", 65535}, {"65537", 1},
        {"5000abc", 5000},    {" 5000", 5000},  {"+5000", 5000},
        {"-1", 65535},        {"5000.9", 5000}, {"4294967297", 65535} /* saturates first */,
        {"2147483648", 65535}};

    for (const auto& [text, port] : ports)
    {
        EXPECT_TRUE(parse({"--slave", "slave", "--port", text})) << text;
        EXPECT_EQ(settings.daemonPort, port) << text;
    }
}

TEST_F(CommandLineTest, TheLastOfARepeatedOptionWins)
{
    EXPECT_TRUE(parse({"--port", "1", "--slave", "a", "--alias", "x", "--out-of-core", "1G,1G",
                       "--slave", "b", "--port", "2", "--alias", "y", "--out-of-core", "2k"}));
    EXPECT_EQ(slavePath, "b");
    EXPECT_EQ(settings.daemonPort, 2);
    EXPECT_EQ(settings.slaveAlias, "y");
    EXPECT_EQ(settings.outOfCoreMaxMemory, 2048);
    EXPECT_EQ(settings.outOfCoreHeadroom, 1073741824); // the second value had none
}

TEST_F(CommandLineTest, AnUnknownOptionEndsTheParsing)
{
    EXPECT_FALSE(parse(
        {"--alias", "a", "--help", "", "--slave", "slave", "--port", "5000", "--other", "x"}));
    EXPECT_EQ(log.lines(), failure("unknown command line argument '--help'"));
    EXPECT_EQ(settings.slaveAlias, "a");
    EXPECT_EQ(slavePath, "");
    EXPECT_EQ(settings.daemonPort, 0);
}

TEST_F(CommandLineTest, OptionsMatchOnlyExactly)
{
    for (const std::string option :
         {"--Port", "--por", "--port=5000", "-port", "port", "", " --port"})
    {
        EXPECT_FALSE(parse({option.c_str(), "5000", "--slave", "slave"}));
        EXPECT_EQ(log.lines(), failure("unknown command line argument '" + option + "'"));
    }
}

TEST_F(CommandLineTest, TheNextParameterIsTheValueEvenIfItIsAnOption)
{
    EXPECT_TRUE(parse({"--alias", "--slave", "--slave", "--port", "--port", "7"}));
    EXPECT_EQ(settings.slaveAlias, "--slave");
    EXPECT_EQ(slavePath, "--port");
    EXPECT_EQ(settings.daemonPort, 7);
}

TEST_F(CommandLineTest, AMissingLastValueIsEmpty)
{
    EXPECT_TRUE(parseBehindSlaveAndPort({"--alias"}));
    EXPECT_EQ(settings.slaveAlias, "");
    EXPECT_TRUE(parseBehindSlaveAndPort({"--gpus"}));
    EXPECT_EQ(settings.gpuIds, GpuIds{});
    EXPECT_TRUE(parseBehindSlaveAndPort({"--out-of-core"}));
    EXPECT_EQ(settings.outOfCoreMaxMemory, 0);
}

TEST_F(CommandLineTest, QuotesAroundAValueAreRemoved)
{
    const std::vector<std::pair<const char*, const char*>> values{{"'my slave'", "my slave"},
                                                                  {"\"my slave\"", "my slave"},
                                                                  {"'open", "open"},
                                                                  {"'", ""},
                                                                  {"''", ""},
                                                                  {"'a\"", "a"},
                                                                  {" 'a'", " 'a'"},
                                                                  {"a'b'", "a'b'"},
                                                                  {"a'", "a'"}};

    for (const auto& [value, unquoted] : values)
    {
        EXPECT_TRUE(parseBehindSlaveAndPort({"--alias", value})) << value;
        EXPECT_EQ(settings.slaveAlias, unquoted) << value;
    }

    EXPECT_TRUE(parse({"--slave", "'/a b/c'", "--port", "'5000'"}));
    EXPECT_EQ(slavePath, "/a b/c");
    EXPECT_EQ(settings.daemonPort, 5000);
}

TEST_F(CommandLineTest, QuotesAroundAnOptionAreKept)
{
    EXPECT_FALSE(parse({"'--port'", "5000"}));
    EXPECT_EQ(log.lines(), failure("unknown command line argument ''--port''"));
}

TEST_F(CommandLineTest, GpuIdsAreSeparatedByABlankOrAComma)
{
    for (const auto* list : {"1 3", "1,3", "'1 3'", "1x,3.9", "+1 03"})
    {
        EXPECT_TRUE(parseBehindSlaveAndPort({"--gpus", list})) << list;
        EXPECT_EQ(settings.gpuIds, (GpuIds{1, 3})) << list;
    }
}

TEST_F(CommandLineTest, GpuIdsOfRepeatedOptionsAccumulateInOrder)
{
    EXPECT_TRUE(parseBehindSlaveAndPort({"--gpus", "3,1,3", "--gpus", "2", "--gpus", ""}));
    EXPECT_EQ(settings.gpuIds, (GpuIds{3, 1, 3, 2}));
}

TEST_F(CommandLineTest, GpuIdsSaturateAt32Bits)
{
    EXPECT_TRUE(parseBehindSlaveAndPort({"--gpus", "2147483647,99999999999"}));
    EXPECT_EQ(settings.gpuIds, (GpuIds{2147483647, 2147483647}));
}

TEST_F(CommandLineTest, AGpuIdBelowOneIsAnErrorThatNamesIt)
{
    const std::vector<std::pair<const char*, std::string>> lists{
        {"1, 3", ""},     {"1,,3", ""},
        {",", ""},        {"1,", ""},
        {" 1", ""},       {"0", "0"},
        {"-1", "-1"},     {"1,x,2", "x"},
        {"1 2 0x", "0x"}, {"-99999999999", "-99999999999"}};

    for (const auto& [list, shown] : lists)
    {
        EXPECT_FALSE(parseBehindSlaveAndPort({"--gpus", list})) << list;
        EXPECT_EQ(log.lines(),
                  failure("invalid GPU ID '" + shown + "', must be an integral number >= 1"))
            << list;
    }
}

TEST_F(CommandLineTest, OutOfCoreTakesAMaximumAndAHeadroom)
{
    const std::vector<std::tuple<const char*, int64_t, int64_t>> values{
        {"8G", 8589934592, 0},
        {"8G,1G", 8589934592, 1073741824},
        {"8G 512m", 8589934592, 536870912},
        {"8G,1G,5G,x", 8589934592, 1073741824},
        {"8G, 1G", 8589934592, 0},
        {",1G", 0, 1073741824},
        {"", 0, 0},
        {"0,1G", 0, 1073741824},
        {"many", 0, 0}};

    for (const auto& [value, maximum, headroom] : values)
    {
        EXPECT_TRUE(parseBehindSlaveAndPort({"--out-of-core", value})) << value;
        EXPECT_EQ(settings.outOfCoreMaxMemory, maximum) << value;
        EXPECT_EQ(settings.outOfCoreHeadroom, headroom) << value;
    }
}

TEST_F(CommandLineTest, ReasonAndSyntaxAreLoggedAsErrors)
{
    flags::logPrefix = 1;
    EXPECT_FALSE(parse({"--gpus", "0"}));
    Lines expected;

    for (const auto& line : failure("invalid GPU ID '0', must be an integral number >= 1"))
        expected.push_back("ERROR     : " + line);

    EXPECT_EQ(log.lines(), expected);
}

TEST_F(CommandLineTest, ValuesMayContainAnyCharactersAndHaveAnyLength)
{
    const std::string text = "M\xC3\xBCller %s %n \xF0\x9F\x98\x80 " + std::string(1'000'000, 'x');
    EXPECT_TRUE(parseBehindSlaveAndPort({"--alias", text.c_str()}));
    EXPECT_EQ(settings.slaveAlias, juce::String::fromUTF8(text.c_str()));
    EXPECT_FALSE(parse({"%s%n"}));
    EXPECT_EQ(log.lines(), failure("unknown command line argument '%s%n'"));
}

TEST(MemorySizeTest, TheLastLetterIsTheUnit)
{
    EXPECT_EQ(parseMemorySize("100"), 100);
    EXPECT_EQ(parseMemorySize("2k"), 2048);
    EXPECT_EQ(parseMemorySize("2K"), 2048);
    EXPECT_EQ(parseMemorySize("512m"), 536870912);
    EXPECT_EQ(parseMemorySize("512M"), 536870912);
    EXPECT_EQ(parseMemorySize("4g"), 4294967296);
    EXPECT_EQ(parseMemorySize("4G"), 4294967296);
}

TEST(MemorySizeTest, OtherLastCharactersAreNotUnits)
{
    EXPECT_EQ(parseMemorySize("100x"), 100);
    EXPECT_EQ(parseMemorySize("4G "), 4);
    EXPECT_EQ(parseMemorySize("4GB"), 4);
    EXPECT_EQ(parseMemorySize(juce::String::fromUTF8("7\xE2\x82\xAC")), 7);
}

TEST(MemorySizeTest, TheNumberIsTheLeadingInteger)
{
    EXPECT_EQ(parseMemorySize("1.5G"), 1073741824);
    EXPECT_EQ(parseMemorySize("1 G"), 1073741824);
    EXPECT_EQ(parseMemorySize(" 2k"), 2048);
    EXPECT_EQ(parseMemorySize("-2k"), -2048);
    EXPECT_EQ(parseMemorySize("G"), 0);
    EXPECT_EQ(parseMemorySize(""), 0);
}

TEST(MemorySizeTest, SizesBeyond64BitsSaturate)
{
    EXPECT_EQ(parseMemorySize("9223372036854775807"), highest64);
    EXPECT_EQ(parseMemorySize("9223372036854775808"), highest64);
    EXPECT_EQ(parseMemorySize("99999999999999999999G"), highest64);
    EXPECT_EQ(parseMemorySize("8589934591G"), 9223372035781033984);
    EXPECT_EQ(parseMemorySize("8589934592G"), highest64);
    EXPECT_EQ(parseMemorySize("-8589934592G"), lowest64);
    EXPECT_EQ(parseMemorySize("-8589934593G"), lowest64);
    EXPECT_EQ(parseMemorySize("-99999999999999999999k"), lowest64);
}

} // namespace
} // namespace quelta::test
