#include "standin_slave/platform/CurrentProcess.h"

#include <cstdlib>

#include <sys/resource.h>
#include <unistd.h>

namespace quelta {

unsigned long getProcessId()
{
    return static_cast<unsigned long>(::getpid());
}

void crashProcess()
{
    constexpr rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
    std::abort();
}

} // namespace quelta
