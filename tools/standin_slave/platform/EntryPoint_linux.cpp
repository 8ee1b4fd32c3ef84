// The entry point on Linux: main.
#include <csignal>
#include <string>
#include <vector>

#include "standin_slave/StandinSlave.h"

int main(int argc, char* argv[])
{
    // A write to a daemon that is gone, on the socket or on standard output, fails instead of
    // ending the process.
    std::signal(SIGPIPE, SIG_IGN);
    return static_cast<int>(quelta::runStandinSlave(std::vector<std::string>(argv, argv + argc)));
}
