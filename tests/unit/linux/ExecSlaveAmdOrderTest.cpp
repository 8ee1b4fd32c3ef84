#include "exec_slave/AmdGpus.h"

#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

// The kernel numbers cards in the order in which their drivers came up.
TEST(AmdOrderTest, GraphicsDevicesComeInTheOrderOfThePciBus)
{
    namespace fs = std::filesystem;
    const test::TemporaryFolder folder;
    const fs::path sys = folder.getPath();

    const auto add = [&](const char* card, const char* place, const char* device) {
        const auto target = sys / "devices" / place;
        fs::create_directories(target);
        fs::create_directories(sys / "class/drm" / card);
        fs::create_directory_symlink(target, sys / "class/drm" / card / "device");
        test::writeBytes(juce::File((target / "vendor").string()), "0x1002\n");
        test::writeBytes(juce::File((target / "device").string()), device);
    };

    add("card0", "0000:c3:00.0", "0xc3\n");
    add("card1", "0000:03:00.0", "0x03\n");
    EXPECT_EQ(readAmdGpus(sys).names, (std::vector<std::string>{"AMD GPU 0x03", "AMD GPU 0xc3"}));
}

} // namespace
} // namespace quelta::execslave
