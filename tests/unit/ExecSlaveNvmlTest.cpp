#include "exec_slave/Nvml.h"

#include "support/FakeNvml.h"
#include "support/StandardStreamCapture.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using State = GpuReport::State;
using Texts = std::vector<std::string>;

GpuReport read(const char* behaviour)
{
    return readNvml(test::getFakeNvml(behaviour).getFullPathName().toStdString());
}

TEST(NvmlTest, GpusComeInTheOrderOfThePciBus)
{
    const auto report = read("two");
    EXPECT_EQ(report.state, State::answered);
    EXPECT_EQ(report.names, (Texts{"Fake GPU 1", "Fake GPU 0"}));
    EXPECT_EQ(report.uuids, (Texts{"GPU-10000000-0000-0000-0000-000000000000",
                                   "GPU-00000000-0000-0000-0000-000000000000"}));
    EXPECT_EQ(report.notes, Texts{});
}

TEST(NvmlTest, NoGpuIsAnAnswer)
{
    const auto report = read("none");
    EXPECT_EQ(report.state, State::answered);
    EXPECT_EQ(report.names, Texts{});
    EXPECT_EQ(report.notes, Texts{});
}

TEST(NvmlTest, ADriverThatIsNotLoadedIsNotedWithItsOwnText)
{
    const auto report = read("error");
    EXPECT_EQ(report.state, State::failed);
    EXPECT_EQ(report.notes, Texts{"NVML: nvmlInit_v2 failed: error 9 (Driver Not Loaded)"});
}

TEST(NvmlTest, ALostGpuIsLeftOutAndNoted)
{
    const auto report = read("lost");
    EXPECT_EQ(report.state, State::answered);
    EXPECT_EQ(report.names, (Texts{"Fake GPU 2", "Fake GPU 0"}));
    EXPECT_EQ(report.notes,
              Texts{"NVML, GPU 1: nvmlDeviceGetHandleByIndex_v2 failed: error 15 (GPU is lost)"});
}

TEST(NvmlTest, AnImpossibleNumberOfGpusIsNotBelieved)
{
    const test::StandardStreamCapture capture(stdout); // it prints too
    const auto report = read("nonsense");
    EXPECT_EQ(report.state, State::failed);
    EXPECT_EQ(report.notes, Texts{"NVML: impossible number of GPUs: 4000000000"});
}

TEST(NvmlTest, NamesThatAreNotTerminatedAreCut)
{
    const auto report = read("dirty");
    ASSERT_EQ(report.names.size(), 2U);
    EXPECT_EQ(report.names[0], std::string(96, '\x01'));
    EXPECT_EQ(parseGpuReport(formatGpuReport(report))->names[0], std::string(96, ' '));
}

TEST(NvmlTest, AMissingLibraryIsAbsent)
{
    const auto report = readNvml("no-such-folder/libnvidia-ml.so.1");
    EXPECT_EQ(report.state, State::absent);
    ASSERT_EQ(report.notes.size(), 1U);
    EXPECT_EQ(report.notes[0].find("no-such-folder/libnvidia-ml.so.1: cannot "), 0U)
        << report.notes[0];
}

TEST(NvmlTest, ALibraryWithoutTheFunctionsIsNoted)
{
    const auto report = readNvml(test::getLibraryOfTheSystem());
    EXPECT_EQ(report.state, State::failed);
    EXPECT_EQ(report.notes, Texts{"NVML: the library has no function nvmlInit_v2"});
}

} // namespace
} // namespace quelta::execslave
