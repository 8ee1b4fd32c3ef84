#include "exec_slave/platform/GpuSystem.h"

namespace quelta::execslave::platform {

std::string getNvmlName()
{
    return "libnvidia-ml.so.1";
}

bool hasOtherWaysThanNvml()
{
    return true;
}

bool limitsWithRocr()
{
    return true;
}

} // namespace quelta::execslave::platform
