// The generator of masters for the benchmarks. Usage: MASTERS DAEMON_PORT. Prints the masters'
// port, then executes the commands on its standard input and exits at its end.
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "masters/Commands.h"

int main(int argc, char** argv)
{
    using namespace quelta::bench;

    if (argc != 3)
        return 2;

    try
    {
        MasterSwarm swarm(std::atoi(argv[1]));
        Commands commands(swarm, static_cast<uint16_t>(std::atoi(argv[2])));
        std::cout << "{\"port\": " << swarm.getPort() << "}" << std::endl;

        for (std::string command; std::getline(std::cin, command);)
            std::cout << commands.run(command) << std::endl;
    }
    catch (const std::exception& failure)
    {
        std::cout << "{\"error\": \"" << failure.what() << "\"}" << std::endl;
        return 1;
    }

    return 0;
}
