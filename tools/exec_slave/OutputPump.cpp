#include "exec_slave/OutputPump.h"

#include <array>

#include "exec_slave/LineSplitter.h"

namespace quelta::execslave {

namespace {

constexpr std::chrono::milliseconds readLimit{1000}; ///< Between two looks at the request to stop.
constexpr size_t bufferSize = 16384;

} // namespace

OutputPump::OutputPump(const Configuration& configuration, ContainedProgram& program,
                       OutputWriter& writer, SessionInbox& inbox)
    : source(program), output(writer), reports(inbox)
{
    std::string error; // The expressions have been checked with the configuration.

    for (const auto& expression : configuration.errors)
        errors.emplace_back(expression, Pattern(expression, error));

    if (!configuration.ready.line.empty())
        ready.emplace(configuration.ready.line, error);

    thread = std::jthread([this](const std::stop_token& stop) { run(stop); });
}

void OutputPump::run(const std::stop_token& stop)
{
    LineSplitter splitter;
    std::array<char, bufferSize> buffer;
    const auto sink = [this](std::string_view line) { takeLine(line); };
    int count = 0;

    while (!stop.stop_requested() &&
           (count = source.read(buffer.data(), buffer.size(), readLimit)) >= 0)
        splitter.add({buffer.data(), static_cast<size_t>(count)}, sink);

    splitter.finish(sink);
    reports.reportEndOfOutput();
}

void OutputPump::takeLine(std::string_view line)
{
    reports.beginLine();

    for (const auto& [expression, pattern] : errors)
        if (pattern.matches(line))
            reports.reportErrorLine(line, expression);

    if (ready && ready->matches(line))
    {
        ready.reset();
        reports.reportReady();
    }

    output.writeProgramLine(line);
    reports.endLine();
}

} // namespace quelta::execslave
