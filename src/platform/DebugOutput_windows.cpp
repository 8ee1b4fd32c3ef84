#include "platform/DebugOutput.h"

#include <windows.h>

namespace quelta::platform {

void writeDebugLine(const char* line)
{
    OutputDebugStringA(line);
    OutputDebugStringA("\n");
}

} // namespace quelta::platform
