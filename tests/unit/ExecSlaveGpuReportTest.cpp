#include "exec_slave/GpuReport.h"
#include "exec_slave/NvidiaSmi.h"

#include <gtest/gtest.h>

namespace quelta::execslave {
namespace {

using State = GpuReport::State;
using Texts = std::vector<std::string>;

constexpr auto twoGpus =
    "\n"
    "quelta-gpu\tGPU-8a\tNVIDIA RTX A4000\n"
    "quelta-gpu\t\tOther\n"
    "quelta-gpu-note\tGPU 2 is lost\t\n"
    "quelta-gpu-end\tanswered\t3\n";

TEST(GpuReportTest, AReportIsWrittenInLines)
{
    EXPECT_EQ(
        formatGpuReport(
            {State::answered, {"NVIDIA RTX A4000", "Other"}, {"GPU-8a", ""}, {"GPU 2 is lost"}}),
        "\nquelta-gpu\tGPU-8a\tNVIDIA RTX A4000\nquelta-gpu\t\tOther\n"
        "quelta-gpu-note\tGPU 2 is lost\t\nquelta-gpu-end\tanswered\t3\n");
    EXPECT_EQ(formatGpuReport({State::failed, {}, {}, {}}), "\nquelta-gpu-end\tfailed\t0\n");
}

TEST(GpuReportTest, WhatALibraryPrintsInBetweenIsIgnored)
{
    const auto report = parseGpuReport(std::string("libnvidia: 42") + twoGpus + "bye\n");
    ASSERT_TRUE(report);
    EXPECT_EQ(report->state, State::answered);
    EXPECT_EQ(report->names, (Texts{"NVIDIA RTX A4000", "Other"}));
    EXPECT_EQ(report->uuids, (Texts{"GPU-8a", ""}));
    EXPECT_EQ(report->notes, Texts{"GPU 2 is lost"});
}

TEST(GpuReportTest, WindowsLineEndsAreAccepted)
{
    const auto report = parseGpuReport("quelta-gpu\tu\tn\r\nquelta-gpu-end\tabsent\t1\r\n");
    ASSERT_TRUE(report);
    EXPECT_EQ(report->state, State::absent);
    EXPECT_EQ(report->names, Texts{"n"});
}

TEST(GpuReportTest, AnIncompleteReportIsNone)
{
    const std::string whole = twoGpus;

    for (size_t size = 0; size < whole.size() - 2; ++size)
        EXPECT_FALSE(parseGpuReport(whole.substr(0, size))) << size;

    EXPECT_FALSE(parseGpuReport("quelta-gpu\tu\tn\nquelta-gpu-end\tanswered\t2\n"));
    EXPECT_FALSE(parseGpuReport("quelta-gpu-end\tperhaps\t0\n"));
    EXPECT_FALSE(parseGpuReport("GPU 0: NVIDIA RTX A4000 (UUID: GPU-8a)\n"));
}

TEST(GpuReportTest, NamesCannotBreakTheFormOrTheTerminal)
{
    const auto report = parseGpuReport(formatGpuReport({State::answered,
                                                        {"a\nquelta-gpu\tb\x1b[31m\x7f"},
                                                        {"GPU-\xff"},
                                                        {std::string(500, 'x')}}));
    ASSERT_TRUE(report);
    EXPECT_EQ(report->names, Texts{"a quelta-gpu b [31m "});
    EXPECT_EQ(report->uuids, Texts{"GPU-\xc3\xbf"});
    EXPECT_EQ(report->notes, Texts{std::string(200, 'x')});
}

TEST(NvidiaSmiTest, GpuLinesAreTakenAndOthersIgnored)
{
    const auto report = parseNvidiaSmi(0,
                                       "Warning: persistence mode is off\n"
                                       "GPU 0: NVIDIA A100 (40 GB) (UUID: GPU-8a)\n"
                                       "  MIG 1g.5gb Device 0: (UUID: MIG-77)\n"
                                       "GPU 1: NVIDIA RTX A4000 (UUID: GPU-9b)\r\n");
    EXPECT_EQ(report.state, State::answered);
    EXPECT_EQ(report.names, (Texts{"NVIDIA A100 (40 GB)", "NVIDIA RTX A4000"}));
    EXPECT_EQ(report.uuids, (Texts{"GPU-8a", "GPU-9b"}));
    EXPECT_TRUE(report.notes.empty());
}

struct SmiRow
{
    int status;
    const char* output;
    const char* note;
};

class NvidiaSmiFailureTest : public testing::TestWithParam<SmiRow>
{};

TEST_P(NvidiaSmiFailureTest, IsNoted)
{
    const auto report = parseNvidiaSmi(GetParam().status, GetParam().output);
    EXPECT_EQ(report.state, State::failed);
    EXPECT_EQ(report.names, Texts{});
    EXPECT_EQ(report.notes, Texts{GetParam().note});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, NvidiaSmiFailureTest,
    testing::Values(
        SmiRow{6, "No devices were found\n",
               "nvidia-smi named no GPU and ended with exit status 6: No devices were found"},
        SmiRow{9, "\n\nNVIDIA-SMI has failed\nmore\n",
               "nvidia-smi named no GPU and ended with exit status 9: NVIDIA-SMI has failed"},
        SmiRow{9, "GPU 0: NVIDIA A100 (UUID: GPU-8a)\n",
               "nvidia-smi named no GPU and ended with exit status 9: GPU 0: NVIDIA A100 (UUID: "
               "GPU-8a)"},
        SmiRow{0, "", "nvidia-smi named no GPU and ended with exit status 0: no output"},
        SmiRow{0, "GPU 1: A (UUID: B)\n",
               "nvidia-smi named no GPU and ended with exit status 0: GPU 1: A (UUID: B)"},
        SmiRow{0, "GPU 0: (UUID: GPU-8a)\n",
               "nvidia-smi named no GPU and ended with exit status 0: GPU 0: (UUID: GPU-8a)"},
        SmiRow{0, "\x01\xff\n",
               "nvidia-smi named no GPU and ended with exit status 0:  \xc3\xbf"}));

} // namespace
} // namespace quelta::execslave
