// AMD's GPUs are selected by HIP_VISIBLE_DEVICES on Windows, where they are not detected.
#include "exec_slave/Gpus.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using Environment = std::map<std::string, std::string>;

Environment both(const char* entries)
{
    return {{"CUDA_DEVICE_ORDER", "PCI_BUS_ID"},
            {"CUDA_VISIBLE_DEVICES", entries},
            {"HIP_VISIBLE_DEVICES", entries}};
}

TEST(AmdGpuSelectionTest, ConfiguredGpusMayBeOfEitherVendor)
{
    EXPECT_EQ(selectGpus({}, {}, {1}, 2).environment, both("1"));
}

TEST(AmdGpuSelectionTest, TheInheritedVariableIsMapped)
{
    EXPECT_EQ(selectGpus({}, {{}, {}, "3,2"}, {1}, 2).environment, both("2"));
    EXPECT_EQ(selectGpus({}, {"0", {}, "3,2"}, {}, 2).environment, both("3,2"));
    EXPECT_EQ(selectGpus({}, {"5,4", {}, {}}, {1}, 2).environment, both("4"));
}

TEST(AmdGpuSelectionTest, ADetectedVendorGetsItsOwnVariableOnly)
{
    const DetectedGpus two{GpuVendor::amd, {"a", "b"}, {"", ""}, "test", {}};
    EXPECT_EQ(selectGpus(two, {{}, {}, "1,0"}, {0}, {}).environment,
              (Environment{{"HIP_VISIBLE_DEVICES", "1"}}));
}

} // namespace
} // namespace quelta::execslave
