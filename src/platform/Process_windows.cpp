#include "platform/Process.h"

#include <windows.h>

#include <limits>

namespace quelta::platform {

void prepareProcess()
{
    // A slave with a missing DLL, or one that crashes, would show a box and hold its GPU until
    // somebody clicks. Slaves inherit the mode. There are no signals for broken connections here,
    // and no numbered descriptors.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
}

int countFreeDescriptors()
{
    return std::numeric_limits<int>::max(); // handles are bounded by memory only
}

} // namespace quelta::platform
