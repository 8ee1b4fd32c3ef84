#include "worker/platform/StopNumber.h"

#include <csignal>

namespace quelta {

int stopNumber()
{
    return SIGTERM;
}

} // namespace quelta
