#define NOMINMAX
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include "platform/DebugOutput.h"

namespace quelta::platform {

void writeDebugLine(const char* line)
{
    OutputDebugStringA(line);
    OutputDebugStringA("\n");
}

} // namespace quelta::platform
