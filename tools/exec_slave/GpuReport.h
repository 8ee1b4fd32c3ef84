// What one way of detecting GPUs found, and its form on the standard output of a child process.
//
// A driver's library may print to the same output, so each line begins with a word that marks it,
// and the last one tells the number of lines.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quelta::execslave {

struct GpuReport
{
    enum class State
    {
        answered, ///< The driver was asked; the names are complete.
        failed,   ///< It could not answer; the notes say why.
        absent    ///< There is nothing to ask; the note says what is missing.
    };

    State state = State::failed;
    std::vector<std::string> names;
    std::vector<std::string> uuids;
    std::vector<std::string> notes;
};

std::string formatGpuReport(const GpuReport& report);

/** Reads a child's output. Empty if the report is missing or incomplete. */
std::optional<GpuReport> parseGpuReport(std::string_view output);

/** Valid UTF-8 without control characters, at most 200 bytes, from a driver's bytes. */
std::string toPrintableText(std::string_view bytes);

/** Splits at line feeds, and drops carriage returns before them. */
std::vector<std::string_view> splitLines(std::string_view text);

} // namespace quelta::execslave
