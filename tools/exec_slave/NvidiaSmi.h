// The output of `nvidia-smi -L`.
#pragma once

#include <string>
#include <string_view>

#include "exec_slave/GpuReport.h"

namespace quelta::execslave {

/** Takes the lines of the form "GPU 0: NVIDIA RTX A4000 (UUID: GPU-8a...)", which come in the order
    of the PCI bus. Ignores others, such as those of MIG instances. */
GpuReport parseNvidiaSmi(int exitStatus, std::string_view output);

} // namespace quelta::execslave
