// AMD's GPUs are selected by ROCR_VISIBLE_DEVICES on Linux.
#include "exec_slave/Gpus.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using Environment = std::map<std::string, std::string>;
using Numbers = std::vector<unsigned>;

const DetectedGpus fourAmd{
    GpuVendor::amd, {"a", "b", "c", "d"}, {"GPU-a0", "GPU-b0", "GPU-c0", ""}, "sysfs", {}};

TEST(AmdGpuSelectionTest, TheSelectionIsSetForTheRuntimeBelowHip)
{
    const auto selection = selectGpus(fourAmd, {}, {3, 1}, {});
    EXPECT_EQ(selection.gpus, (Numbers{3, 1}));
    EXPECT_EQ(selection.environment, (Environment{{"ROCR_VISIBLE_DEVICES", "3,1"}}));
}

TEST(AmdGpuSelectionTest, TheInheritedVariableIsMapped)
{
    const InheritedSelection inherited{{}, "GPU-c0,3,0", {}};
    EXPECT_EQ(selectGpus(fourAmd, inherited, {}, {}).environment,
              (Environment{{"ROCR_VISIBLE_DEVICES", "GPU-c0,3,0"}}));
    EXPECT_EQ(selectGpus(fourAmd, inherited, {2}, {}).environment,
              (Environment{{"ROCR_VISIBLE_DEVICES", "0"}}));
}

// HIP counts the GPUs that ROCR_VISIBLE_DEVICES leaves. Both variables together would hide all.
TEST(AmdGpuSelectionTest, HipsOwnVariablesAreReplacedByTheOneBelow)
{
    EXPECT_EQ(selectGpus(fourAmd, {{}, "2,3", "1"}, {}, {}).environment,
              (Environment{{"HIP_VISIBLE_DEVICES", ""}, {"ROCR_VISIBLE_DEVICES", "3"}}));
    EXPECT_EQ(selectGpus(fourAmd, {"3,2", {}, {}}, {1}, {}).environment,
              (Environment{{"CUDA_VISIBLE_DEVICES", ""}, {"ROCR_VISIBLE_DEVICES", "2"}}));
}

TEST(AmdGpuSelectionTest, HipPrefersItsOwnVariableToCudas)
{
    EXPECT_EQ(selectGpus(fourAmd, {"0", {}, "1"}, {}, {}).environment,
              (Environment{{"CUDA_VISIBLE_DEVICES", ""},
                           {"HIP_VISIBLE_DEVICES", ""},
                           {"ROCR_VISIBLE_DEVICES", "1"}}));
}

TEST(AmdGpuSelectionTest, TheErrorNamesTheVariables)
{
    EXPECT_EQ(selectGpus(fourAmd, {{}, "1,2", "0"}, {1}, {}).error,
              "there is no GPU 2 (-g 1): this node has 4 GPUs according to sysfs, of which "
              "ROCR_VISIBLE_DEVICES=1,2 and HIP_VISIBLE_DEVICES=0 leaves 1");
}

// AMD's programs heed it too, unless another variable is set.
TEST(AmdGpuSelectionTest, CudasVariableServesGpusOfAnUnknownVendor)
{
    EXPECT_EQ(selectGpus({}, {}, {1}, 2).environment,
              (Environment{{"CUDA_DEVICE_ORDER", "PCI_BUS_ID"}, {"CUDA_VISIBLE_DEVICES", "1"}}));
}

} // namespace
} // namespace quelta::execslave
