#include "exec_slave/CommandRun.h"

#include <algorithm>
#include <array>

#include "exec_slave/platform/ContainedProgram.h"

namespace quelta::execslave {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Outcome = CommandResult::Outcome;

constexpr size_t maxOutput = 64 * 1024; ///< Bytes.
constexpr auto pollInterval = 20ms;     ///< How often a stop is noticed.

/** Reads what there is, for at most `limit`. Returns what ContainedProgram::read does. */
int readSome(ContainedProgram& program, std::chrono::milliseconds limit, std::string& output)
{
    std::array<char, 4096> buffer{};
    const int count = program.read(buffer.data(), buffer.size(), limit);

    if (count > 0)
        output.append(buffer.data(),
                      std::min(static_cast<size_t>(count), maxOutput - output.size()));

    return count;
}

} // namespace

CommandResult runCommand(const ProgramStart& start, std::chrono::milliseconds limit,
                         const std::stop_token& stop)
{
    CommandResult result;
    const auto program = ContainedProgram::start(start, result.error);

    if (program == nullptr)
        return result;

    const auto deadline = Clock::now() + limit;
    bool hasOutput = true;

    for (;;)
    {
        if (hasOutput)
            hasOutput = readSome(*program, pollInterval, result.output) >= 0;

        if (const auto end = program->waitForEnd(hasOutput ? 0ms : pollInterval))
        {
            result.outcome = Outcome::ended;
            result.status = end->status;
            break;
        }

        if (stop.stop_requested() || Clock::now() >= deadline)
        {
            result.outcome = stop.stop_requested() ? Outcome::stopped : Outcome::timedOut;
            break;
        }
    }

    program->kill();

    while (result.output.size() < maxOutput && readSome(*program, 0ms, result.output) > 0)
    {}

    return result;
}

} // namespace quelta::execslave
