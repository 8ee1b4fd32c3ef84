#include "worker/platform/StopNumber.h"

#include <csignal>

namespace quelta {

int stopNumber()
{
    return SIGBREAK;
}

} // namespace quelta
