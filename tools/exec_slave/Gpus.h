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
    /** One a GPU: NVIDIA's in the order of the PCI bus, AMD's in that of ROCR_VISIBLE_DEVICES. */
    std::vector<std::string> names;
    /** Such as "GPU-8a...", in the same order. Empty for a GPU without. */
    std::vector<std::string> uuids;
    std::string source;             ///< For --check, such as "NVML" or "nvidia-smi".
    std::vector<std::string> notes; ///< What went wrong on the way, such as a driver that hangs.
};

/** Detects the GPUs in child processes, so that a driver that hangs or crashes costs at most 5 s.
    Asks NVML, else nvidia-smi, else AMD's driver; on Windows NVML alone. A node with GPUs of both
    vendors counts as one with NVIDIA's. */
DetectedGpus detectGpus();

/** The first argument of such a child. */
constexpr auto gpuDetectionOption = "--detect-gpus";

/** The main function of such a child: prints what it finds and ends the process. `way` is its
    second argument. */
[[noreturn]] void runGpuDetection(const std::string& way);

struct GpuSelection
{
    std::vector<unsigned> gpus;                     ///< 0-based: the selected ones, or all.
    std::map<std::string, std::string> environment; ///< Limits the program to them.
    std::string error;                              ///< Empty if all selected GPUs exist.
};

/** Variables that may already limit this process to some GPUs. Empty if not set. */
struct InheritedSelection
{
    std::optional<std::string> cuda; ///< CUDA_VISIBLE_DEVICES
    std::optional<std::string> rocr; ///< ROCR_VISIBLE_DEVICES
    std::optional<std::string> hip;  ///< HIP_VISIBLE_DEVICES
};

InheritedSelection readInheritedSelection();

/** Checks `requested` against what is there. Its numbers count from 0 the GPUs that the inherited
    variables leave, in their order; empty means all of those. `configuredCount` replaces the number
    detected. If no GPU was detected but some are configured, the vendor is unknown, and variables
    are set that limit both vendors' programs. Pure. */
GpuSelection selectGpus(const DetectedGpus& detected, const InheritedSelection& inherited,
                        const std::vector<unsigned>& requested,
                        std::optional<unsigned> configuredCount);

} // namespace quelta::execslave
