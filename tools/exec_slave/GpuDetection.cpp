#include "exec_slave/GpuDetection.h"

#include "exec_slave/AmdGpus.h"
#include "exec_slave/NvidiaSmi.h"
#include "exec_slave/Nvml.h"
#include "exec_slave/platform/ContainedProgram.h"
#include "exec_slave/platform/GpuSystem.h"
#include "platform/Paths.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace quelta::execslave {
namespace {

using Clock = std::chrono::steady_clock;
using Outcome = CommandResult::Outcome;
using std::chrono::milliseconds;

constexpr auto nvmlWay = "nvml";
constexpr auto amdWay = "amd";
constexpr auto sysfs = "/sys";

// The detection takes 5 s at most, the end of the last child included.
constexpr milliseconds nvmlDeadline{3'500};
constexpr milliseconds nvidiaSmiDeadline{4'300};
constexpr milliseconds amdDeadline{4'700};

std::string describeSeconds(milliseconds time)
{
    const auto tenths = (time.count() + 50) / 100;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

/** `finished` is set if the vendor's driver needs no further question. */
GpuReport tryWay(const GpuWay& way, const CommandRunner& run, milliseconds limit, bool& finished)
{
    const auto result = run({way.command, {}, {}}, limit);
    GpuReport report;

    switch (result.outcome)
    {
        case Outcome::failed:
            report.state = GpuReport::State::absent;
            report.notes.push_back(toPrintableText(result.error));
            break;
        case Outcome::timedOut:
            report.notes.push_back(way.name + " hung and was killed after " +
                                   describeSeconds(limit));
            finished = true;
            break;
        case Outcome::stopped: // never asked for
        case Outcome::ended:
            if (auto parsed = way.read(result))
                report = std::move(*parsed);
            else
                report.notes.push_back(way.name + " ended with exit status " +
                                       std::to_string(result.status) + " and without a result");

            finished = report.state == GpuReport::State::answered;
            break;
    }

    return report;
}

/** A command that does not exist costs no child either. */
CommandResult runIfFound(const ProgramStart& start, milliseconds limit)
{
    if (!findProgram(start).empty())
        return runCommand(start, limit, {});

    CommandResult result;
    result.error = "there is no " + start.command.front();
    return result;
}

} // namespace

std::optional<GpuReport> readGpuReport(const CommandResult& result)
{
    return result.status == 0 ? parseGpuReport(result.output) : std::nullopt;
}

std::optional<GpuReport> readNvidiaSmi(const CommandResult& result)
{
    return parseNvidiaSmi(result.status, result.output);
}

std::vector<GpuWay> getGpuWays(const std::string& program)
{
    std::vector<GpuWay> ways{{"NVML",
                              GpuVendor::nvidia,
                              {program, gpuDetectionOption, nvmlWay},
                              nvmlDeadline,
                              readGpuReport}};

    if (platform::hasOtherWaysThanNvml())
    {
        ways.push_back({"nvidia-smi",
                        GpuVendor::nvidia,
                        {"nvidia-smi", "-L"},
                        nvidiaSmiDeadline,
                        readNvidiaSmi});

        // A child for nothing would delay every start of a node without GPUs.
        if (mayHaveAmdGpus(sysfs))
            ways.push_back({"sysfs",
                            GpuVendor::amd,
                            {program, gpuDetectionOption, amdWay},
                            amdDeadline,
                            readGpuReport});
    }

    return ways;
}

DetectedGpus detectGpus(const std::vector<GpuWay>& ways, const CommandRunner& run)
{
    const auto began = Clock::now();
    DetectedGpus detected;
    std::string nothing;
    auto finishedVendor = GpuVendor::none;

    for (const auto& way : ways)
    {
        if (way.vendor == finishedVendor)
            continue;

        const auto elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - began);
        const auto limit = std::max(way.deadline - elapsed, milliseconds(1));
        auto finished = false;
        const auto report = tryWay(way, run, limit, finished);

        if (finished)
            finishedVendor = way.vendor;

        if (report.state == GpuReport::State::absent)
            nothing += "; " + report.notes.front();
        else
            detected.notes.insert(detected.notes.end(), report.notes.begin(), report.notes.end());

        if (!report.names.empty())
        {
            detected.vendor = way.vendor;
            detected.names = report.names;
            detected.uuids = report.uuids;
            detected.source = way.name;
            return detected;
        }

        if (report.state == GpuReport::State::answered)
            nothing += "; " + way.name + ": no GPU";
    }

    if (!nothing.empty())
        detected.notes.push_back("no GPU was found: " + nothing.substr(2));

    return detected;
}

DetectedGpus detectGpus()
{
    const auto program = quelta::platform::executableFile().getFullPathName().toStdString();
    return detectGpus(getGpuWays(program), [](const ProgramStart& start, milliseconds limit) {
        return runIfFound(start, limit);
    });
}

void runGpuDetection(const std::string& way)
{
    const auto report = way == amdWay ? readAmdGpus(sysfs) : readNvml(platform::getNvmlName());
    std::cout << formatGpuReport(report) << std::flush;
    // Not by returning: a driver may have installed handlers that hang or crash at the exit.
    std::_Exit(std::cout.good() ? 0 : 1);
}

} // namespace quelta::execslave
