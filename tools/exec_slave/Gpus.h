// The GPUs of this node: their detection, and the environment that limits a program to some.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quelta::execslave {

enum class GpuVendor
{
    none,
    nvidia,
    amd
};

struct DetectedGpus
{
    GpuVendor vendor = GpuVendor::none;
    std::vector<std::string> names; ///< One a GPU, in PCI bus order.
    std::vector<std::string> uuids; ///< Of NVIDIA GPUs, such as "GPU-8a...", in the same order.
    std::string source;             ///< For --check, such as "NVML" or "nvidia-smi".
    std::vector<std::string> notes; ///< What went wrong on the way, such as a driver that hangs.
};

/** Detects the GPUs in a child process, so that a driver that hangs or crashes costs at most 5 s. */
DetectedGpus detectGpus();

/** The main function of that child: prints what it finds. Returns its exit status. */
int runGpuDetection();

struct GpuSelection
{
    std::vector<unsigned> gpus;                     ///< 0-based: the selected ones, or all.
    std::map<std::string, std::string> environment; ///< Limits the program to them.
    std::string error;                              ///< Empty if all selected GPUs exist.
};

/** The variables that may already restrict this process: CUDA_VISIBLE_DEVICES and the vendor's. Empty
    if not set. */
struct InheritedSelection
{
    std::optional<std::string> cuda;
    std::optional<std::string> amd;
};

InheritedSelection readInheritedSelection();

/** Checks `requested` (0-based; empty means all) against what is there and maps it through the
    inherited selection. `configuredCount` overrides the number detected. Pure. */
GpuSelection selectGpus(const DetectedGpus& detected, const InheritedSelection& inherited,
                        const std::vector<unsigned>& requested,
                        std::optional<unsigned> configuredCount);

} // namespace quelta::execslave
