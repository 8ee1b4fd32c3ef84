// A scenario file of the stand-in slave.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "standin_slave/ScenarioParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    quelta::Scenario scenario;
    std::string error;

    if (quelta::parseScenario({reinterpret_cast<const char*>(data), size}, scenario, error) !=
        error.empty())
        std::abort();
    return 0;
}
