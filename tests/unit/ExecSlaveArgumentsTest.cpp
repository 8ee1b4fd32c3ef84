#include "exec_slave/SlaveArguments.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using Strings = std::vector<std::string>;

SlaveArguments parse(Strings arguments)
{
    arguments.insert(arguments.begin(), "slave");
    return parseSlaveArguments(arguments);
}

TEST(ExecSlaveArgumentsTest, TheWholeCommandLineIsTaken)
{
    const auto parsed = parse({"--net-master-address", "192.168.0.10", "--net-master-port", "5130",
                               "--daemon-port", "5300", "--alias", "node7", "-g", "0", "-g", "2",
                               "--out-of-core", "8589934592,512"});
    EXPECT_EQ(parsed.error, "");
    EXPECT_EQ(parsed.masterAddress, "192.168.0.10");
    EXPECT_EQ(parsed.masterPort, 5130);
    EXPECT_EQ(parsed.daemonPort, 5300);
    EXPECT_EQ(parsed.alias, "node7");
    EXPECT_EQ(parsed.gpus, (std::vector<unsigned>{0, 2}));
    EXPECT_EQ(parsed.outOfCore, 8589934592);
    EXPECT_EQ(parsed.headroom, 512);
    EXPECT_FALSE(parsed.infoRequest);
}

TEST(ExecSlaveArgumentsTest, TheInformationRunHasNoMaster)
{
    const auto parsed = parse({"--net-master-address", "0.0.0.0", "--net-master-port", "0",
                               "--daemon-port", "5131", "--alias", "", "--daemon-info-request"});
    EXPECT_EQ(parsed.error, "");
    EXPECT_EQ(parsed.masterAddress, "0.0.0.0");
    EXPECT_EQ(parsed.masterPort, 0);
    EXPECT_EQ(parsed.alias, "");
    EXPECT_TRUE(parsed.gpus.empty());
    EXPECT_TRUE(parsed.infoRequest);
}

TEST(ExecSlaveArgumentsTest, AnAliasMayLookLikeAnOption)
{
    const auto parsed = parse({"--daemon-port", "1", "--alias", "--daemon-info-request"});
    EXPECT_EQ(parsed.error, "");
    EXPECT_EQ(parsed.alias, "--daemon-info-request");
    EXPECT_FALSE(parsed.infoRequest);
}

TEST(ExecSlaveArgumentsTest, TheHeadroomIsOptional)
{
    const auto parsed = parse({"--daemon-port", "1", "--out-of-core", "100"});
    EXPECT_EQ(parsed.error, "");
    EXPECT_EQ(parsed.outOfCore, 100);
    EXPECT_EQ(parsed.headroom, 0);
}

struct WrongLine
{
    Strings arguments;
    const char* error;
};

class ExecSlaveWrongArgumentsTest : public testing::TestWithParam<WrongLine>
{};

TEST_P(ExecSlaveWrongArgumentsTest, IsRefusedWithTheReason)
{
    EXPECT_EQ(parse(GetParam().arguments).error, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, ExecSlaveWrongArgumentsTest,
    testing::Values(
        WrongLine{{}, "--daemon-port is missing: the daemon starts this program, see --help"},
        WrongLine{{"--verbose"}, "unknown argument '--verbose'"},
        WrongLine{{"--daemon-port"}, "--daemon-port: expected a port from 1 to 65535"},
        WrongLine{{"--daemon-port", "0"},
                  "--daemon-port: expected a port from 1 to 65535, found '0'"},
        WrongLine{{"--daemon-port", "65536"},
                  "--daemon-port: expected a port from 1 to 65535, found '65536'"},
        WrongLine{{"--daemon-port", "80x"},
                  "--daemon-port: expected a port from 1 to 65535, found '80x'"},
        WrongLine{{"--net-master-port", "-1"},
                  "--net-master-port: expected a port from 0 to 65535, found '-1'"},
        WrongLine{{"--net-master-address", "10.0.0"},
                  "--net-master-address: expected an IPv4 address, found '10.0.0'"},
        WrongLine{{"--net-master-address", "10.0.0.256"},
                  "--net-master-address: expected an IPv4 address, found '10.0.0.256'"},
        WrongLine{{"--net-master-address", "10.0.0.1.2"},
                  "--net-master-address: expected an IPv4 address, found '10.0.0.1.2'"},
        WrongLine{{"-g", ""}, "-g: expected the number of a GPU, found ''"},
        WrongLine{{"-g", "-1"}, "-g: expected the number of a GPU, found '-1'"},
        WrongLine{{"--out-of-core", "5,"},
                  "--out-of-core: expected MAXIMUM or MAXIMUM,HEADROOM in bytes, found '5,'"},
        WrongLine{{"--out-of-core", "-5"},
                  "--out-of-core: expected MAXIMUM or MAXIMUM,HEADROOM in bytes, found '-5'"}));

} // namespace
} // namespace quelta::execslave
