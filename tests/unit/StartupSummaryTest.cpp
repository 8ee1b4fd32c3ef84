#include "app/StartupSummary.h"

#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

namespace quelta::test {
namespace {

class StartupSummaryTest : public testing::Test
{
protected:
    StartupSummaryTest()
    {
        settings.slaveExecutable = folder.getChild("slave.exe");
        settings.daemonPort = 5130;
    }

    Lines print(uint32_t version = 4'000'001, uint32_t gpus = 2)
    {
        printStartupSummary(settings, version, gpus);
        return log.lines();
    }

    const TemporaryFolder folder;
    DaemonSettings settings;
    LogCapture log;
};

TEST_F(StartupSummaryTest, WithoutOptionsTheDefaultsAreShown)
{
    EXPECT_EQ(print(),
              (Lines{"\n\nLaunching daemon with:",
                     "  slave path:    " + settings.slaveExecutable.getFullPathName().toStdString(),
                     "  slave alias:   ", "  daemon port:   5130", "  GPU selection: all",
                     "Slave information:", "  version:       4000001", "  provided GPUs: 2",
                     "Out-of-core rendering: disabled", ""}));
}

TEST_F(StartupSummaryTest, EveryOptionIsShown)
{
    settings.slaveAlias = "node7";
    settings.daemonPort = 65535;
    settings.gpuIds = {2, 1};
    settings.outOfCoreMaxMemory = 8'589'934'592;
    settings.outOfCoreHeadroom = 100;
    EXPECT_EQ(print(4'294'967'295, 4'294'967'295),
              (Lines{"\n\nLaunching daemon with:",
                     "  slave path:    " + settings.slaveExecutable.getFullPathName().toStdString(),
                     "  slave alias:   node7", "  daemon port:   65535", "  GPU selection: 2, 1",
                     "Slave information:", "  version:       4294967295",
                     "  provided GPUs: 4294967295", "Out-of-core rendering: enabled",
                     "  Max RAM usage:   8.0 GB", "  GPU headroom:    100 bytes", ""}));
}

TEST_F(StartupSummaryTest, WithoutAHeadroomTheSlavesDefaultIsShown)
{
    settings.outOfCoreMaxMemory = 1'610'612'736;
    const auto lines = print();
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_EQ(lines[9], "  Max RAM usage:   1.5 GB");
    EXPECT_EQ(lines[10], "  GPU headroom:    use default value");
}

TEST_F(StartupSummaryTest, AHeadroomAloneLeavesOutOfCoreDisabled)
{
    settings.outOfCoreHeadroom = 1'073'741'824;
    const auto lines = print();
    ASSERT_EQ(lines.size(), 10u);
    EXPECT_EQ(lines[8], "Out-of-core rendering: disabled");
}

TEST_F(StartupSummaryTest, OneGpuIsShownWithoutAComma)
{
    settings.gpuIds = {3};
    EXPECT_EQ(print().at(4), "  GPU selection: 3");
}

TEST_F(StartupSummaryTest, TheLinesHaveNoPrefixAndNeedNoFlag)
{
    flags::logPrefix = 1;

    for (const auto& line : print())
        EXPECT_EQ(line.substr(0, 12), "            ");
}

} // namespace
} // namespace quelta::test
