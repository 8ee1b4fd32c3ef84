// AMD's GPUs as the Linux kernel shows them in sysfs.
#pragma once

#include <filesystem>

#include "exec_slave/GpuReport.h"

namespace quelta::execslave {

/** Whether there is anything to read, without asking a driver. */
bool mayHaveAmdGpus(const std::filesystem::path& sys);

/** Reads the nodes of the compute driver, in the order in which ROCR_VISIBLE_DEVICES counts them.
    Without that driver, reads the graphics devices, in the order of the PCI bus. `sys` is "/sys"
    except in tests. */
GpuReport readAmdGpus(const std::filesystem::path& sys);

} // namespace quelta::execslave
