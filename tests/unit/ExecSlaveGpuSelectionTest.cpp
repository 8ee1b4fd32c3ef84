#include "exec_slave/Gpus.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using Environment = std::map<std::string, std::string>;
using Numbers = std::vector<unsigned>;

DetectedGpus nvidia(size_t count)
{
    DetectedGpus gpus{GpuVendor::nvidia, {}, {}, "NVML", {}};

    for (size_t i = 0; i < count; ++i)
    {
        gpus.names.push_back("GPU " + std::to_string(i));
        gpus.uuids.push_back("GPU-" + std::to_string(i) + "aa" + std::to_string(i));
    }

    return gpus;
}

InheritedSelection inheritedCuda(const char* value)
{
    return {value, {}, {}};
}

Environment cuda(const char* entries)
{
    return {{"CUDA_DEVICE_ORDER", "PCI_BUS_ID"}, {"CUDA_VISIBLE_DEVICES", entries}};
}

struct MappingRow
{
    const char* inherited; ///< Null: not set.
    Numbers requested;
    Numbers selected;
    const char* entries; ///< Null: the environment stays as it is.
};

class GpuMappingTest : public testing::TestWithParam<MappingRow>
{};

TEST_P(GpuMappingTest, FourNvidiaGpus)
{
    const auto& row = GetParam();
    const InheritedSelection inherited{
        row.inherited ? std::optional<std::string>(row.inherited) : std::nullopt, {}, {}};
    const auto selection = selectGpus(nvidia(4), inherited, row.requested, {});
    EXPECT_EQ(selection.error, "");
    EXPECT_EQ(selection.gpus, row.selected);
    EXPECT_EQ(selection.environment, row.entries ? cuda(row.entries) : Environment{});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, GpuMappingTest,
    testing::Values(MappingRow{nullptr, {}, {0, 1, 2, 3}, "0,1,2,3"},
                    MappingRow{nullptr, {2}, {2}, "2"}, MappingRow{nullptr, {3, 0}, {3, 0}, "3,0"},
                    MappingRow{nullptr, {1, 1, 0}, {1, 0}, "1,0"},
                    MappingRow{"2,3", {}, {0, 1}, "2,3"}, MappingRow{"2,3", {1}, {1}, "3"},
                    MappingRow{" 3 , 1 ", {1, 0}, {1, 0}, "1,3"},
                    // The list ends at its first wrong entry.
                    MappingRow{"0,4,1", {}, {0}, "0"}, MappingRow{"0,2,-1,1", {}, {0, 1}, "0,2"},
                    MappingRow{"1,,2", {}, {0}, "1"}, MappingRow{"1x,2", {}, {}, nullptr},
                    MappingRow{"1,1,2", {}, {0}, "1"}, MappingRow{"99999999999", {}, {}, nullptr},
                    // Empty means none.
                    MappingRow{"", {}, {}, nullptr}, MappingRow{"-1", {}, {}, nullptr},
                    MappingRow{"NoDevFiles", {}, {}, nullptr},
                    // UUIDs stay as they are written.
                    MappingRow{"GPU-2aa2,0", {}, {0, 1}, "GPU-2aa2,0"},
                    MappingRow{"GPU-3,1", {0}, {0}, "GPU-3"}, MappingRow{"GPU-", {}, {}, nullptr},
                    MappingRow{"1,GPU-9,2", {}, {0}, "1"}, MappingRow{"1,GPU-1aa,2", {}, {0}, "1"},
                    MappingRow{"MIG-GPU-1/2/0,MIG-f00", {1}, {1}, "MIG-f00"}));

TEST(GpuSelectionTest, AnUnknownGpuIsAnErrorThatTellsBothNumbersAndWhatIsThere)
{
    const auto selection = selectGpus(nvidia(2), {}, {1, 3}, {});
    EXPECT_EQ(selection.error, "there is no GPU 4 (-g 3): this node has 2 GPUs according to NVML");
    EXPECT_TRUE(selection.gpus.empty());
    EXPECT_TRUE(selection.environment.empty());
}

TEST(GpuSelectionTest, TheErrorNamesTheVariableThatHidesTheGpu)
{
    EXPECT_EQ(selectGpus(nvidia(4), inheritedCuda("2"), {1}, {}).error,
              "there is no GPU 2 (-g 1): this node has 4 GPUs according to NVML, of which "
              "CUDA_VISIBLE_DEVICES=2 leaves 1");
    EXPECT_EQ(selectGpus(nvidia(1), inheritedCuda(""), {0}, {}).error,
              "there is no GPU 1 (-g 0): this node has 1 GPU according to NVML, of which "
              "CUDA_VISIBLE_DEVICES= leaves 0");
}

TEST(GpuSelectionTest, AGpuOfANodeWithoutGpusIsAnError)
{
    EXPECT_EQ(selectGpus({}, {}, {0}, {}).error,
              "there is no GPU 1 (-g 0): no GPU was found on this node");
    EXPECT_EQ(selectGpus({}, {}, {4294967295U}, {}).error,
              "there is no GPU 4294967296 (-g 4294967295): no GPU was found on this node");
}

TEST(GpuSelectionTest, ANodeWithoutGpusIsFineIfNoneIsRequested)
{
    const auto selection = selectGpus({}, inheritedCuda("0"), {}, {});
    EXPECT_EQ(selection.error, "");
    EXPECT_TRUE(selection.gpus.empty());
    EXPECT_TRUE(selection.environment.empty());
}

TEST(GpuSelectionTest, AConfiguredCountReplacesTheDetectedOne)
{
    EXPECT_EQ(selectGpus(nvidia(4), {}, {}, 2).gpus, (Numbers{0, 1}));
    EXPECT_EQ(selectGpus(nvidia(4), {}, {}, 2).environment, cuda("0,1"));
    EXPECT_EQ(selectGpus(nvidia(1), {}, {2}, 3).environment, cuda("2"));
    EXPECT_TRUE(selectGpus(nvidia(4), {}, {}, 0).gpus.empty());
    EXPECT_EQ(selectGpus(nvidia(4), {}, {2}, 2).error,
              "there is no GPU 3 (-g 2): the configuration gives this node 2 GPUs");
}

TEST(GpuSelectionTest, AConfiguredCountStillHeedsTheInheritedVariable)
{
    EXPECT_EQ(selectGpus(nvidia(8), inheritedCuda("6,7"), {}, 1).environment, cuda("6"));
    EXPECT_EQ(selectGpus(nvidia(8), inheritedCuda("6,7"), {}, 4).environment, cuda("6,7"));
    EXPECT_EQ(selectGpus(nvidia(8), inheritedCuda("6,7"), {2}, 4).error,
              "there is no GPU 3 (-g 2): the configuration gives this node 4 GPUs, of which "
              "CUDA_VISIBLE_DEVICES=6,7 leaves 2");
}

TEST(GpuSelectionTest, WithoutDetectionTheInheritedEntriesOfConfiguredGpusAreBelieved)
{
    const auto select = [](const char* inherited) {
        return selectGpus({}, inheritedCuda(inherited), {}, 2).environment["CUDA_VISIBLE_DEVICES"];
    };
    EXPECT_EQ(select("6,7"), "6,7");
    EXPECT_EQ(select("GPU-8a,GPU-8b"), "GPU-8a,GPU-8b");
    EXPECT_EQ(select("5,-1,6"), "5");
    EXPECT_EQ(select("5,5"), "5");
}

} // namespace
} // namespace quelta::execslave
