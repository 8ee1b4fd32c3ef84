#include "platform/Process.h"

#include <windows.h>

#include <limits>

namespace quelta::platform {

void prepareProcess()
{
    // Slaves inherit the mode. Otherwise a slave that crashes or lacks a DLL shows a dialog and
    // keeps its GPU until a user closes the dialog.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
}

int countFreeDescriptors()
{
    return std::numeric_limits<int>::max(); // only memory limits handles
}

} // namespace quelta::platform
