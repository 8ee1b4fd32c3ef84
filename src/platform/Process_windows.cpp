#include "platform/Process.h"

#include <limits>

namespace quelta::platform {

void prepareProcess()
{
    // Nothing to do: there are no signals for broken connections here, and no numbered descriptors.
}

int countFreeDescriptors()
{
    return std::numeric_limits<int>::max(); // handles are bounded by memory only
}

} // namespace quelta::platform
