#include "standin_slave/platform/Platform.h"

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "standin_slave/StandinSlave.h"

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

int main(int argc, char* argv[])
{
    // A daemon that is gone shows as a failed write, on its socket and on its output.
    std::signal(SIGPIPE, SIG_IGN);
    return static_cast<int>(quelta::runStandinSlave(std::vector<std::string>(argv, argv + argc)));
}
