#include "exec_slave/NvidiaSmi.h"

namespace quelta::execslave {
namespace {

constexpr std::string_view uuidBegin = " (UUID: ";
constexpr std::string_view uuidEnd = ")";

/** Adds the GPU of a line, if it has one. */
void addGpu(std::string_view line, GpuReport& report)
{
    const std::string number = std::to_string(report.names.size());
    const auto begin = "GPU " + number + ": ";
    const auto uuid = line.rfind(uuidBegin);

    if (!line.starts_with(begin) || !line.ends_with(uuidEnd) || uuid == std::string_view::npos ||
        uuid < begin.size())
        return;

    const auto uuidAt = uuid + uuidBegin.size();
    report.names.push_back(toPrintableText(line.substr(begin.size(), uuid - begin.size())));
    report.uuids.push_back(
        toPrintableText(line.substr(uuidAt, line.size() - uuidAt - uuidEnd.size())));
}

std::string_view findFirstText(std::string_view output)
{
    for (const auto line : splitLines(output))
        if (!line.empty())
            return line;

    return "no output";
}

} // namespace

GpuReport parseNvidiaSmi(int exitStatus, std::string_view output)
{
    GpuReport report;

    if (exitStatus == 0)
        for (const auto line : splitLines(output))
            addGpu(line, report);

    if (!report.names.empty())
        report.state = GpuReport::State::answered;
    else
        report.notes.push_back("nvidia-smi named no GPU and ended with exit status " +
                               std::to_string(exitStatus) + ": " +
                               toPrintableText(findFirstText(output)));

    return report;
}

} // namespace quelta::execslave
