#include "containment/Generation.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "containment/platform/ProcessTools.h"
#include "standin_slave/platform/CurrentProcess.h"

namespace quelta::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int numGenerations = 3;
constexpr std::chrono::minutes lifetime{2};

/** Waits for the condition. False after the lifetime. */
template <typename Condition>
bool waitUntil(Condition condition)
{
    for (const auto end = Clock::now() + lifetime; Clock::now() < end;)
    {
        if (condition())
            return true;

        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }

    return false;
}

} // namespace

int runGeneration(const GenerationArguments& arguments)
{
    const auto path = [&](const std::string& name) { return arguments.folder + "/" + name; };
    ignoreEndRequests();

    if (!lockFile(path(std::to_string(arguments.number))))
        return 98;

    if (arguments.number < numGenerations)
        startOrphan({arguments.program, "generation", arguments.folder,
                     std::to_string(arguments.number + 1), arguments.end});

    if (arguments.number > 1)
        return waitUntil([] { return false; }) ? 0 : 99;

    waitUntil([&] { return isLocked(path(std::to_string(numGenerations))); });
    std::puts("ready");
    std::fflush(stdout);
    waitUntil([&] { return std::filesystem::exists(path("go")); });

    if (arguments.end == "crash")
        crashProcess();

    return 7;
}

} // namespace quelta::test
