#include "exec_slave/AmdGpus.h"

#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using test::TemporaryFolder;
using Texts = std::vector<std::string>;

class AmdGpusTest : public testing::Test
{
protected:
    void write(const juce::String& path, std::string_view bytes) const
    {
        const auto file = folder.getChild("sys").getChildFile(path);
        file.getParentDirectory().createDirectory();
        test::writeBytes(file, bytes);
    }

    void addNode(int number, std::string_view properties, std::string_view name) const
    {
        const auto node = "class/kfd/kfd/topology/nodes/" + juce::String(number) + "/";
        write(node + "properties", properties);
        write(node + "name", name);
    }

    void addCard(const char* card, std::string_view vendor, std::string_view device) const
    {
        const auto place = juce::String("class/drm/") + card + "/device/";
        write(place + "vendor", vendor);
        write(place + "device", device);
    }

    bool mayHave() const { return mayHaveAmdGpus(folder.getPath() + "/sys"); }
    GpuReport read() const { return readAmdGpus(folder.getPath() + "/sys"); }

    const TemporaryFolder folder;
};

constexpr auto processor = "cpu_cores_count 64\nsimd_count 0\nvendor_id 0\n";
constexpr auto gpu =
    "cpu_cores_count 0\nsimd_count 480\nvendor_id 4098\nunique_id 2596148429267413\n";

TEST_F(AmdGpusTest, NodesOfTheComputeDriverCountInTheOrderOfTheirNumbers)
{
    addNode(0, processor, "");
    addNode(10, gpu, "gfx1100\n");
    addNode(2, "simd_count 256\nvendor_id 4098\nunique_id 0\n", "\n");
    const auto report = read();
    EXPECT_EQ(report.state, GpuReport::State::answered);
    EXPECT_EQ(report.names, (Texts{"AMD GPU", "AMD gfx1100"}));
    EXPECT_EQ(report.uuids, (Texts{"", "GPU-0009392ee8e921d5"}));
}

TEST_F(AmdGpusTest, OtherVendorsAndUnreadableNodesAreNoGpus)
{
    addNode(0, processor, "");
    addNode(1, "simd_count 480\nvendor_id 4318\n", "other");
    addNode(2, "", "closed");
    addNode(3, "simd_count -1\nvendor_id 4098\n\xff\x01 garbage", "garbage");
    write("class/kfd/kfd/topology/nodes/x/properties", gpu);
    write("class/kfd/kfd/topology/nodes/4x/properties", gpu);
    EXPECT_EQ(read().names, Texts{});
}

TEST_F(AmdGpusTest, WithoutAComputeDriverGraphicsDevicesCount)
{
    addCard("card0", "0x10de\n", "0x2204\n");
    addCard("card1", "0x1002\n", "0x73bf\n");
    addCard("card1-HDMI-A-1", "0x1002\n", "0x0000\n");
    addCard("renderD128", "0x1002\n", "0x73bf\n");
    const auto report = read();
    EXPECT_EQ(report.names, Texts{"AMD GPU 0x73bf"});
    EXPECT_EQ(report.uuids, Texts{""});
}

TEST_F(AmdGpusTest, GraphicsDevicesOfAComputeDriversNodeDoNotCountTwice)
{
    addNode(1, gpu, "gfx1100");
    addCard("card0", "0x1002\n", "0x73bf\n");
    EXPECT_EQ(read().names, Texts{"AMD gfx1100"});
}

TEST_F(AmdGpusTest, NothingAtAllIsAnAnswer)
{
    EXPECT_EQ(read().state, GpuReport::State::answered);
    EXPECT_EQ(read().names, Texts{});
    EXPECT_FALSE(mayHave());
}

TEST_F(AmdGpusTest, ACardMayBeAGpu)
{
    addCard("card0-HDMI-A-1", "", "");
    addCard("renderD128", "", "");
    write("class/drm/version", "drm 1.1.0");
    EXPECT_FALSE(mayHave());
    addCard("card0", "0x10de", "");
    EXPECT_TRUE(mayHave());
}

TEST_F(AmdGpusTest, ANodeOfTheComputeDriverMayBeAGpu)
{
    addNode(0, processor, "");
    EXPECT_TRUE(mayHave());
}

} // namespace
} // namespace quelta::execslave
