#include "platform/KeepAwake.h"

#include <windows.h>

namespace quelta::platform {

KeepAwake::KeepAwake()
{
    SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
}

KeepAwake::~KeepAwake()
{
    SetThreadExecutionState(ES_CONTINUOUS);
}

} // namespace quelta::platform
