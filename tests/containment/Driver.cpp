#include "containment/Driver.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <thread>

#include "containment/platform/ProcessTools.h"
#include "exec_slave/platform/ContainedProgram.h"

namespace quelta::test {

namespace {

using execslave::ContainedProgram;

constexpr std::chrono::minutes limit{2};

void print(const std::string& line)
{
    std::puts(line.c_str());
    std::fflush(stdout);
}

std::unique_ptr<ContainedProgram> startGenerations(const DriverArguments& arguments, int number)
{
    std::string error;
    auto program = ContainedProgram::start(
        {{arguments.program, "generation", arguments.folder, std::to_string(number), arguments.end},
         {},
         {}},
        error);

    if (program == nullptr)
    {
        print(error);
        std::exit(1);
    }

    return program;
}

void waitUntilReady(ContainedProgram& program)
{
    std::array<char, 256> buffer{};

    for (std::string output; output.find("ready") == std::string::npos;)
    {
        const int count = program.read(buffer.data(), buffer.size(), limit);

        if (count <= 0)
        {
            print("not ready: " + output);
            std::exit(1);
        }

        output.append(buffer.data(), static_cast<size_t>(count));
    }
}

std::string describeEnd(ContainedProgram& program, std::chrono::milliseconds wait)
{
    const auto end = program.waitForEnd(wait);
    return end ? end->text : "no end";
}

/** The generations that live, such as " 1 2 3". */
std::string listGenerations(const std::string& folder)
{
    std::string list;

    for (const auto* const name : {"1", "2", "3"})
        if (isLocked(folder + "/" + name))
            list.append(" ").append(name);

    return list.empty() ? " none" : list;
}

void runRounds(const DriverArguments& arguments, int numRounds)
{
    // The last generation starts no other one.
    for (int round = 0; round < numRounds; ++round)
        startGenerations(arguments, 3)->kill();

    print(describeResources());
}

/** This process has signals and descriptors that the command should not inherit. */
void runShell(const std::string& command)
{
    std::string error;
    makeSignalsAndDescriptorsUnusual();
    const auto program = ContainedProgram::start({{"sh", "-c", command}, {}, {}}, error);

    if (program == nullptr)
        return print(error);

    print(execslave::describe(program->getContainment()));
    std::array<char, 4096> buffer{};

    for (int count = 0; count >= 0;)
    {
        count = program->read(buffer.data(), buffer.size(), limit);
        std::fwrite(buffer.data(), 1, static_cast<size_t>(std::max(0, count)), stdout);
    }
}

} // namespace

int runDriver(const DriverArguments& arguments)
{
    if (arguments.scenario == "shell")
    {
        runShell(arguments.end);
        return 0;
    }

    if (arguments.scenario == "rounds")
    {
        runRounds(arguments, 2);
        runRounds(arguments, std::stoi(arguments.end));
        return 0;
    }

    auto program = startGenerations(arguments, 1);
    print(execslave::describe(program->getContainment()));
    waitUntilReady(*program);
    print("living:" + listGenerations(arguments.folder));

    if (arguments.scenario == "end")
    {
        const std::ofstream go(arguments.folder + "/go");
        print(describeEnd(*program, limit));
        program->kill();
    }
    else if (arguments.scenario == "kill")
    {
        program->kill();
        print(describeEnd(*program, std::chrono::milliseconds::zero()));
    }
    else if (arguments.scenario == "destroy")
        program.reset();
    else if (arguments.scenario == "leave")
        std::_Exit(0);
    else
        std::this_thread::sleep_for(limit);

    print("living:" + listGenerations(arguments.folder));
    return 0;
}

} // namespace quelta::test
