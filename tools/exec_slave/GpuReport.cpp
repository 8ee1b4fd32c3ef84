#include "exec_slave/GpuReport.h"

#include "util/ValidUtf8.h"

#include <algorithm>
#include <array>

namespace quelta::execslave {
namespace {

constexpr std::string_view gpuMark = "quelta-gpu";
constexpr std::string_view noteMark = "quelta-gpu-note";
constexpr std::string_view endMark = "quelta-gpu-end";
constexpr std::array<std::string_view, 3> stateNames{"answered", "failed", "absent"};

/** The text before the first tab, which is removed with the tab. */
std::string_view takeField(std::string_view& line)
{
    const auto tab = line.find('\t');
    const auto field = line.substr(0, tab);
    line.remove_prefix(tab == std::string_view::npos ? line.size() : tab + 1);
    return field;
}

} // namespace

std::string formatGpuReport(const GpuReport& report)
{
    std::string text = "\n"; // ends a line that a library may have begun
    size_t lines = 0;

    const auto add = [&](std::string_view mark, std::string_view first, std::string_view second) {
        ((((text += mark) += '\t') += first) += '\t') += second;
        text += '\n';
        ++lines;
    };

    for (size_t i = 0; i < report.names.size(); ++i)
        add(gpuMark, toPrintableText(report.uuids[i]), toPrintableText(report.names[i]));

    for (const auto& note : report.notes)
        add(noteMark, toPrintableText(note), {});

    add(endMark, stateNames[static_cast<size_t>(report.state)], std::to_string(lines));
    return text;
}

std::optional<GpuReport> parseGpuReport(std::string_view output)
{
    GpuReport report;
    size_t lines = 0;

    for (auto line : splitLines(output))
    {
        const auto mark = takeField(line);
        const auto first = takeField(line);

        if (mark == endMark)
        {
            const auto* const state = std::find(stateNames.begin(), stateNames.end(), first);

            if (state == stateNames.end() || takeField(line) != std::to_string(lines))
                return {};

            report.state = static_cast<GpuReport::State>(state - stateNames.begin());
            return report;
        }

        if (mark == gpuMark)
        {
            report.uuids.push_back(toPrintableText(first));
            report.names.push_back(toPrintableText(takeField(line)));
            ++lines;
        }
        else if (mark == noteMark)
        {
            report.notes.push_back(toPrintableText(first));
            ++lines;
        }
    }

    return {};
}

std::string toPrintableText(std::string_view bytes)
{
    constexpr size_t maxSize = 100; // Latin-1 may double it
    std::string text(bytes.substr(0, 2 * maxSize));

    for (auto& character : text)
        if (static_cast<unsigned char>(character) < 0x20 || character == 0x7F)
            character = ' ';

    return isValidUtf8(text) ? text : toValidUtf8(text.substr(0, maxSize));
}

std::vector<std::string_view> splitLines(std::string_view text)
{
    std::vector<std::string_view> lines;

    while (!text.empty())
    {
        const auto end = text.find('\n');
        auto line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);

        if (line.ends_with('\r'))
            line.remove_suffix(1);

        lines.push_back(line);
    }

    return lines;
}

} // namespace quelta::execslave
