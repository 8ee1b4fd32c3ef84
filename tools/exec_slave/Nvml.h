// NVIDIA's management library NVML, which comes with the driver and is loaded at run time.
#pragma once

#include <string>

#include "exec_slave/GpuReport.h"

namespace quelta::execslave {

/** Asks the library for its GPUs. `library` is a path, or a name to be searched as the system does.
    May hang or crash with the driver, so it is called in a process of its own. The library is not
    unloaded. */
GpuReport readNvml(const std::string& library);

} // namespace quelta::execslave
