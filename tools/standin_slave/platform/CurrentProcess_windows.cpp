#include "standin_slave/platform/CurrentProcess.h"

#include <windows.h>

#include <cstdlib>

namespace quelta {

unsigned long getProcessId()
{
    return GetCurrentProcessId();
}

void crashProcess()
{
    // The exit status of an access violation. A real one could open a dialog box and wait.
    TerminateProcess(GetCurrentProcess(), 0xC0000005);
    std::_Exit(1);
}

} // namespace quelta
