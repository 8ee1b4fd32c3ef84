#include "exec_slave/GpuDetection.h"

#include <gtest/gtest.h>

#include <map>

namespace quelta::execslave {
namespace {

using Outcome = CommandResult::Outcome;
using State = GpuReport::State;
using Texts = std::vector<std::string>;
using std::chrono::milliseconds;

const CommandResult missing{Outcome::failed, 0, "",
                            "cannot run nvidia-smi: No such file or directory"};
const CommandResult hung{Outcome::timedOut, 0, "", ""};
const CommandResult crashed{Outcome::ended, 134, "", ""};

CommandResult reports(const GpuReport& report)
{
    return {Outcome::ended, 0, formatGpuReport(report), ""};
}

const auto nvmlFinds = reports({State::answered, {"A4000"}, {"GPU-8a"}, {}});
const auto nvmlIsAbsent = reports({State::absent, {}, {}, {"no library"}});
const auto answersNone = reports({State::answered, {}, {}, {}});
const auto amdFinds = reports({State::answered, {"gfx"}, {""}, {}});
const CommandResult smiFinds{Outcome::ended, 0, "GPU 0: A5000 (UUID: GPU-9b)\n", ""};

/** Runs the detection with the results of each way, by its name. Fails on a way without one. */
class GpuDetectionTest : public testing::Test
{
protected:
    DetectedGpus detect(const std::map<std::string, CommandResult>& results)
    {
        auto ways = getWays();

        return detectGpus(ways, [&](const ProgramStart& start, milliseconds limit) {
            for (const auto& way : ways)
            {
                if (way.command != start.command)
                    continue;

                EXPECT_TRUE(results.contains(way.name)) << way.name;
                EXPECT_LE(limit, way.deadline);
                tried.push_back(way.name);
                return results.contains(way.name) ? results.at(way.name) : missing;
            }

            ADD_FAILURE() << start.command.front();
            return missing;
        });
    }

    Texts tried;

private:
    /** Those of Linux, on every system. */
    static std::vector<GpuWay> getWays()
    {
        return {{"NVML", GpuVendor::nvidia, {"nvml"}, milliseconds(3'500), readGpuReport},
                {"nvidia-smi", GpuVendor::nvidia, {"smi"}, milliseconds(4'300), readNvidiaSmi},
                {"sysfs", GpuVendor::amd, {"amd"}, milliseconds(4'700), readGpuReport}};
    }
};

TEST_F(GpuDetectionTest, TheFirstWayThatFindsGpusIsTheLast)
{
    const auto gpus = detect({{"NVML", nvmlFinds}});
    EXPECT_EQ(gpus.vendor, GpuVendor::nvidia);
    EXPECT_EQ(gpus.names, Texts{"A4000"});
    EXPECT_EQ(gpus.uuids, Texts{"GPU-8a"});
    EXPECT_EQ(gpus.source, "NVML");
    EXPECT_EQ(gpus.notes, Texts{});
}

TEST_F(GpuDetectionTest, NvidiaSmiIsAskedWithoutNvml)
{
    const auto gpus = detect({{"NVML", nvmlIsAbsent}, {"nvidia-smi", smiFinds}});
    EXPECT_EQ(gpus.names, Texts{"A5000"});
    EXPECT_EQ(gpus.source, "nvidia-smi");
    EXPECT_EQ(gpus.notes, Texts{});
}

TEST_F(GpuDetectionTest, NvidiaSmiIsAskedAfterACrashOfNvml)
{
    const auto gpus = detect({{"NVML", crashed}, {"nvidia-smi", smiFinds}});
    EXPECT_EQ(gpus.source, "nvidia-smi");
    EXPECT_EQ(gpus.notes, Texts{"NVML ended with exit status 134 and without a result"});
}

TEST_F(GpuDetectionTest, NvidiaSmiIsNotAskedAfterNvmlHungInTheSameDriver)
{
    const auto gpus = detect({{"NVML", hung}, {"sysfs", amdFinds}});
    EXPECT_EQ(tried, (Texts{"NVML", "sysfs"}));
    EXPECT_EQ(gpus.vendor, GpuVendor::amd);
    ASSERT_EQ(gpus.notes.size(), 1U);
    EXPECT_TRUE(gpus.notes[0].starts_with("NVML hung and was killed after 3.")) << gpus.notes[0];
}

TEST_F(GpuDetectionTest, NvidiaSmiIsNotAskedIfNvmlSaysNone)
{
    const auto gpus = detect({{"NVML", answersNone}, {"sysfs", amdFinds}});
    EXPECT_EQ(tried, (Texts{"NVML", "sysfs"}));
    EXPECT_EQ(gpus.source, "sysfs");
    EXPECT_EQ(gpus.notes, Texts{});
}

TEST_F(GpuDetectionTest, NothingFoundTellsWhatEachWaySaid)
{
    const auto gpus =
        detect({{"NVML", nvmlIsAbsent}, {"nvidia-smi", missing}, {"sysfs", answersNone}});
    EXPECT_EQ(gpus.vendor, GpuVendor::none);
    EXPECT_EQ(gpus.names, Texts{});
    EXPECT_EQ(gpus.notes, Texts{"no GPU was found: no library; cannot run nvidia-smi: No such file "
                                "or directory; sysfs: no GPU"});
}

TEST_F(GpuDetectionTest, FailuresAreNotedOneByOne)
{
    const CommandResult smiFails{Outcome::ended, 9, "broken\n", ""};
    const auto failure = reports({State::failed, {}, {}, {"NVML: failed"}});
    const auto gpus = detect({{"NVML", failure}, {"nvidia-smi", smiFails}, {"sysfs", crashed}});
    EXPECT_EQ(gpus.notes,
              (Texts{"NVML: failed", "nvidia-smi named no GPU and ended with exit status 9: broken",
                     "sysfs ended with exit status 134 and without a result"}));
}

TEST_F(GpuDetectionTest, AReportOfAFailedChildIsNotBelieved)
{
    auto result = nvmlFinds;
    result.status = 1;
    const auto gpus = detect({{"NVML", result}, {"nvidia-smi", smiFinds}});
    EXPECT_EQ(gpus.source, "nvidia-smi");
}

TEST_F(GpuDetectionTest, NonsenseIsNoReport)
{
    const CommandResult nonsense{Outcome::ended, 0, "\xff\x01 42 \n", ""};
    const auto gpus = detect({{"NVML", nonsense}, {"nvidia-smi", smiFinds}});
    EXPECT_EQ(gpus.source, "nvidia-smi");
    EXPECT_EQ(gpus.notes, Texts{"NVML ended with exit status 0 and without a result"});
}

TEST_F(GpuDetectionTest, LostGpusAreNotedBesideTheOthers)
{
    const auto gpus = detect({{"NVML", reports({State::answered, {"a"}, {"u"}, {"b is lost"}})}});
    EXPECT_EQ(gpus.names, Texts{"a"});
    EXPECT_EQ(gpus.notes, Texts{"b is lost"});
}

} // namespace
} // namespace quelta::execslave
