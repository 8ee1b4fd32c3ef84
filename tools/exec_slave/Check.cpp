#include "exec_slave/Check.h"

#include <charconv>
#include <string_view>

#include "exec_slave/Duration.h"
#include "exec_slave/platform/PortProbe.h"

namespace quelta::execslave {

namespace {

/** The last line of a command's output, which usually names the reason. */
std::string lastLine(std::string_view output)
{
    constexpr std::string_view lineEnds = "\r\n";
    const auto last = output.find_last_not_of(lineEnds);

    if (last == std::string_view::npos)
        return {};

    output = output.substr(0, last + 1);
    const auto before = output.find_last_of(lineEnds);
    return std::string(before == std::string_view::npos ? output : output.substr(before + 1));
}

} // namespace

std::string describeCommandFailure(const CommandResult& result, std::chrono::milliseconds limit)
{
    switch (result.outcome)
    {
        case CommandResult::Outcome::timedOut:
            return "it took longer than " + describeSeconds(limit);
        case CommandResult::Outcome::stopped:
            return "it was stopped";
        case CommandResult::Outcome::failed:
            return result.error;
        case CommandResult::Outcome::ended:
            break;
    }

    if (result.status == 0)
        return {};

    const auto reason = lastLine(result.output);
    return "exit status " + std::to_string(result.status) + (reason.empty() ? "" : ", ") + reason;
}

std::string checkPort(const std::string& target, std::chrono::milliseconds limit,
                      const std::stop_token& stop)
{
    const auto colon = target.rfind(':');
    uint16_t port = 0;
    std::from_chars(target.data() + colon + 1, target.data() + target.size(), port);

    const auto error = probePort(target.substr(0, colon), port, limit, stop);
    return error.empty() ? error : "cannot connect to " + target + ": " + error;
}

std::string checkCommand(const ProgramStart& command, std::chrono::milliseconds limit,
                         const std::stop_token& stop)
{
    return describeFailure(command, runCommand(command, limit, stop), limit);
}

std::string describeFailure(const ProgramStart& command, const CommandResult& result,
                            std::chrono::milliseconds limit)
{
    const auto subject = "the command " + command.command.front();

    switch (result.outcome)
    {
        case CommandResult::Outcome::timedOut:
            return subject + " took longer than " + describeSeconds(limit);
        case CommandResult::Outcome::stopped:
            return subject + " was stopped";
        case CommandResult::Outcome::failed:
            return result.error;
        case CommandResult::Outcome::ended:
            break;
    }

    if (result.status == 0)
        return {};

    const auto reason = lastLine(result.output);
    return subject + " ended with exit status " + std::to_string(result.status) +
           (reason.empty() ? "" : ": " + reason);
}

} // namespace quelta::execslave
