#include <gtest/gtest.h>

#include "app/SlaveProcess.h"
#include "support/TemporaryFolder.h"

namespace quelta::test {
namespace {

class SlaveCommandLineTest : public testing::Test
{
protected:
    SlaveCommandLineTest() { settings.slaveExecutable = folder.getChild("slave.exe"); }

    std::string build() const
    {
        return buildSlaveCommandLine(settings, 0xC0A8000A, 5130, 5300, false).toStdString();
    }

    const TemporaryFolder folder;
    DaemonSettings settings;
};

TEST_F(SlaveCommandLineTest, TheLineHasAllArgumentsInOrder)
{
    settings.slaveAlias = "node7";
    settings.gpuIds = {1, 3};
    settings.outOfCoreMaxMemory = 8'589'934'592;
    EXPECT_EQ(build(),
              "\"slave.exe\" --net-master-address 192.168.0.10 --net-master-port 5130"
              " --daemon-port 5300 --alias \"node7\" -g 0 -g 2 --out-of-core 8589934592");
}

TEST_F(SlaveCommandLineTest, WithoutAnAliasTheOptionHasAnEmptyValue)
{
    EXPECT_EQ(build(),
              "\"slave.exe\" --net-master-address 192.168.0.10 --net-master-port 5130"
              " --daemon-port 5300 --alias \"\"");
}

TEST_F(SlaveCommandLineTest, TheSlaveCountsItsGpusFromZeroInTheOrderGiven)
{
    settings.gpuIds = {2, 1, 1, 0};
    EXPECT_EQ(build(),
              "\"slave.exe\" --net-master-address 192.168.0.10 --net-master-port 5130"
              " --daemon-port 5300 --alias \"\" -g 1 -g 0 -g 0 -g -1");
}

TEST_F(SlaveCommandLineTest, TheHeadroomFollowsTheMaximumAfterAComma)
{
    settings.outOfCoreMaxMemory = 4'096;
    settings.outOfCoreHeadroom = 1;
    EXPECT_EQ(build(),
              "\"slave.exe\" --net-master-address 192.168.0.10 --net-master-port 5130"
              " --daemon-port 5300 --alias \"\" --out-of-core 4096,1");
}

TEST_F(SlaveCommandLineTest, AHeadroomWithoutAMaximumIsNotPassedOn)
{
    settings.outOfCoreHeadroom = 1'073'741'824;
    EXPECT_EQ(build(),
              "\"slave.exe\" --net-master-address 192.168.0.10 --net-master-port 5130"
              " --daemon-port 5300 --alias \"\"");
}

TEST_F(SlaveCommandLineTest, TheLargestSizesAreWrittenInFull)
{
    settings.outOfCoreMaxMemory = 9'223'372'036'854'775'807;
    settings.outOfCoreHeadroom = 9'223'372'036'854'775'807;
    EXPECT_EQ(build(),
              "\"slave.exe\" --net-master-address 192.168.0.10 --net-master-port 5130"
              " --daemon-port 5300 --alias \"\""
              " --out-of-core 9223372036854775807,9223372036854775807");
}

TEST_F(SlaveCommandLineTest, AnInformationRunHasNoMasterAndEndsWithItsOption)
{
    settings.outOfCoreMaxMemory = 4'096;
    EXPECT_EQ(buildSlaveCommandLine(settings, 0, 0, 65535, true).toStdString(),
              "\"slave.exe\" --net-master-address 0.0.0.0 --net-master-port 0 --daemon-port 65535"
              " --alias \"\" --out-of-core 4096 --daemon-info-request");
}

TEST_F(SlaveCommandLineTest, AMonitorWithoutAPortIsPassedOnAsPortZero)
{
    EXPECT_EQ(
        buildSlaveCommandLine(settings, 0xFFFFFFFF, 65535, 0, false).toStdString(),
        "\"slave.exe\" --net-master-address 255.255.255.255 --net-master-port 65535 --daemon-port 0"
        " --alias \"\"");
}

TEST_F(SlaveCommandLineTest, NamesAndAliasesAreNotEscaped)
{
    settings.slaveExecutable = folder.getChild("render slave \xC3\xBC.bin");
    settings.slaveAlias = juce::String::fromUTF8(
        "n\xC3\xB6"
        "de \"7\\");
    EXPECT_EQ(build(),
              "\"render slave \xC3\xBC.bin\" --net-master-address 192.168.0.10"
              " --net-master-port 5130 --daemon-port 5300 --alias \"n\xC3\xB6"
              "de \"7\\\"");
}

} // namespace
} // namespace quelta::test
