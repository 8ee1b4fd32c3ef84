// The detection in real child processes: of the exec slave with libraries that stand in for
// NVIDIA's, and of scripts that stand in for nvidia-smi.
#include "exec_slave/GpuDetection.h"

#include "support/Children.h"
#include "support/FakeNvml.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using Texts = std::vector<std::string>;
using std::chrono::milliseconds;

constexpr auto twoInSmi =
    "#!/bin/sh\n"
    "[ \"$1\" = -L ] || exit 2\n"
    "echo 'GPU 0: Scripted (UUID: GPU-8a)'\n"
    "echo 'GPU 1: Scripted (UUID: GPU-8b)'\n";

class GpuChildrenTest : public testing::Test
{
protected:
    GpuChildrenTest()
    {
        folder.getChild("bin").createDirectory();
        test::writeBytes(folder.getChild("libnvidia-ml.so.1"), "?");
    }

    ~GpuChildrenTest() override { EXPECT_EQ(test::getChildren(), childrenBefore); }

    /** Detects with the library of this behaviour, or with one that cannot be loaded. */
    DetectedGpus detect(const char* behaviour)
    {
        const auto library = behaviour == nullptr ? folder.getChild("libnvidia-ml.so.1")
                                                  : test::getFakeNvml(behaviour);
        EXPECT_TRUE(library.existsAsFile());

        return detectGpus(ways, [&](ProgramStart start, milliseconds limit) {
            start.environment["LD_LIBRARY_PATH"] =
                library.getParentDirectory().getFullPathName().toStdString();
            start.environment["PATH"] = folder.getPath() + "/bin:/usr/bin:/bin";
            return runCommand(start, limit, {});
        });
    }

    void installSmi(std::string_view script) const
    {
        const auto file = folder.getChild("bin").getChildFile("nvidia-smi");
        test::writeBytes(file, script);
        file.setExecutePermission(true);
    }

    const std::map<std::string, std::string> childrenBefore = test::getChildren();
    const test::TemporaryFolder folder;
    std::vector<GpuWay> ways = getGpuWays(quelta::platform::executableFile()
                                              .getSiblingFile("quelta_exec_slave")
                                              .getFullPathName()
                                              .toStdString());
};

TEST_F(GpuChildrenTest, NvmlIsAskedFirst)
{
    installSmi(twoInSmi);
    const auto gpus = detect("two");
    EXPECT_EQ(gpus.source, "NVML");
    EXPECT_EQ(gpus.names, (Texts{"Fake GPU 1", "Fake GPU 0"}));
    EXPECT_EQ(gpus.notes, Texts{});
}

TEST_F(GpuChildrenTest, ALibraryThatHangsAtTheExitIsNotWaitedFor)
{
    const auto gpus = detect("hangs_at_exit");
    EXPECT_EQ(gpus.names, (Texts{"Fake GPU 1", "Fake GPU 0"}));
    EXPECT_EQ(gpus.notes, Texts{});
}

TEST_F(GpuChildrenTest, ALibraryThatCrashesIsReplacedByNvidiaSmi)
{
    installSmi(twoInSmi);
    const auto gpus = detect("crash");
    EXPECT_EQ(gpus.source, "nvidia-smi");
    EXPECT_EQ(gpus.names, (Texts{"Scripted", "Scripted"}));
    EXPECT_EQ(gpus.uuids, (Texts{"GPU-8a", "GPU-8b"}));
    EXPECT_EQ(gpus.notes, Texts{"NVML ended with exit status 134 and without a result"});
}

TEST_F(GpuChildrenTest, ALibraryThatHangsIsKilled)
{
    installSmi(twoInSmi);
    ways.front().deadline = milliseconds(500);
    const auto gpus = detect("hang");
    EXPECT_NE(gpus.source, "nvidia-smi");
    ASSERT_FALSE(gpus.notes.empty());
    EXPECT_TRUE(gpus.notes.front().starts_with("NVML hung and was killed after 0."))
        << gpus.notes.front();
}

TEST_F(GpuChildrenTest, ALibraryThatPrintsNonsenseIsReplacedByNvidiaSmi)
{
    installSmi(twoInSmi);
    const auto gpus = detect("nonsense");
    EXPECT_EQ(gpus.source, "nvidia-smi");
    EXPECT_EQ(gpus.notes, Texts{"NVML: impossible number of GPUs: 4000000000"});
}

TEST_F(GpuChildrenTest, WithoutALibraryNvidiaSmiIsAsked)
{
    installSmi(twoInSmi);
    const auto gpus = detect(nullptr);
    EXPECT_EQ(gpus.source, "nvidia-smi");
    EXPECT_EQ(gpus.notes, Texts{});
}

struct SmiRow
{
    const char* script;
    const char* note;
};

class BadNvidiaSmiTest : public GpuChildrenTest, public testing::WithParamInterface<SmiRow>
{};

TEST_P(BadNvidiaSmiTest, IsNoted)
{
    installSmi(GetParam().script);
    ways[1].deadline = milliseconds(1'500);
    const auto gpus = detect("error");
    EXPECT_NE(gpus.vendor, GpuVendor::nvidia);
    ASSERT_GE(gpus.notes.size(), 2U);
    EXPECT_EQ(gpus.notes[0], "NVML: nvmlInit_v2 failed: error 9 (Driver Not Loaded)");
    EXPECT_EQ(gpus.notes[1].find(GetParam().note), 0U) << gpus.notes[1];
}

INSTANTIATE_TEST_SUITE_P(
    Rows, BadNvidiaSmiTest,
    testing::Values(
        SmiRow{"#!/bin/sh\necho 'No devices were found'; exit 6\n",
               "nvidia-smi named no GPU and ended with exit status 6: No devices were found"},
        SmiRow{"#!/bin/sh\nkill -9 $$\n",
               "nvidia-smi named no GPU and ended with exit status 137: no output"},
        SmiRow{"#!/bin/sh\nprintf '\\001\\377 42'\n",
               "nvidia-smi named no GPU and ended with exit status 0:  \xc3\xbf 42"},
        SmiRow{"#!/bin/sh\n(trap '' TERM; setsid sleep 1000) & trap '' TERM; wait; sleep 1000\n",
               "nvidia-smi hung and was killed after "},
        SmiRow{"#!/bin/sh\nexec yes\n", "nvidia-smi hung and was killed after "}));

TEST_F(GpuChildrenTest, AnNvidiaSmiThatCannotBeStartedIsToldIfNothingIsFound)
{
    installSmi("#!/no/such/interpreter\n");
    std::erase_if(ways, [](const GpuWay& way) { return way.vendor == GpuVendor::amd; });
    const auto gpus = detect(nullptr);
    EXPECT_EQ(gpus.vendor, GpuVendor::none);
    EXPECT_EQ(gpus.notes,
              Texts{"no GPU was found: " + folder.getPath() +
                    "/libnvidia-ml.so.1: file too short; cannot run nvidia-smi: No such file or "
                    "directory"});
}

} // namespace
} // namespace quelta::execslave
