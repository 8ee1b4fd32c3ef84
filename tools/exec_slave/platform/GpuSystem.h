// What differs between systems in the detection and selection of GPUs.
#pragma once

#include <string>

namespace quelta::execslave::platform {

/** The path or name of NVIDIA's management library. */
std::string getNvmlName();

/** Whether nvidia-smi and AMD's driver are asked too. */
bool hasOtherWaysThanNvml();

/** Whether ROCR_VISIBLE_DEVICES limits programs to some AMD GPUs, rather than
    HIP_VISIBLE_DEVICES. */
bool limitsWithRocr();

} // namespace quelta::execslave::platform
