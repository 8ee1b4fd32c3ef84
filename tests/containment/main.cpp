// Test programs of the containment:
//
//   quelta_test_containment generation FOLDER NUMBER END    see Generation.h
//   quelta_test_containment SCENARIO FOLDER END             see Driver.h
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "containment/Driver.h"
#include "containment/Generation.h"
#include "platform/Process.h"

int main(int argc, char** argv)
{
    const std::vector<std::string> arguments(argv, argv + argc);

    if (arguments.size() == 5 && arguments[1] == "generation")
        return quelta::test::runGeneration(
            {arguments[0], arguments[2], std::stoi(arguments[3]), arguments[4]});

    if (arguments.size() != 4)
        return 64;

    quelta::platform::prepareProcess();

    // The exec slave starts programs while it has other threads.
    const std::jthread other([](const std::stop_token& stop) {
        while (!stop.stop_requested())
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    });
    return quelta::test::runDriver({arguments[0], arguments[1], arguments[2], arguments[3]});
}
