// Detects GPUs in one way after the other, each in a child process with a time limit.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "exec_slave/CommandRun.h"
#include "exec_slave/GpuReport.h"
#include "exec_slave/Gpus.h"

namespace quelta::execslave {

/** A way of detecting GPUs. */
struct GpuWay
{
    std::string name; ///< For notes and --check.
    GpuVendor vendor = GpuVendor::none;
    std::vector<std::string> command;
    std::chrono::milliseconds deadline{0}; ///< Since the detection began.
    /** Reads the output. Empty if it has no report. */
    std::function<std::optional<GpuReport>(const CommandResult&)> read;
};

/** The report of a child of this program. */
std::optional<GpuReport> readGpuReport(const CommandResult& result);

/** The report in the output of `nvidia-smi -L`. */
std::optional<GpuReport> readNvidiaSmi(const CommandResult& result);

/** The ways on this system, in the order in which they are tried. `program` is this executable. */
std::vector<GpuWay> getGpuWays(const std::string& program);

using CommandRunner =
    std::function<CommandResult(const ProgramStart&, std::chrono::milliseconds limit)>;

/** Tries the ways until one finds a GPU. A vendor's driver that has answered, or has kept a way
    waiting until its deadline, is not asked again in another way. */
DetectedGpus detectGpus(const std::vector<GpuWay>& ways, const CommandRunner& run);

} // namespace quelta::execslave
