#include "exec_slave/RotatingFile.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "exec_slave/platform/SystemError.h"

namespace quelta::execslave {

namespace {

/** The path of an old file; 0 is the current one. */
std::filesystem::path getOldPath(const juce::File& file, int number)
{
    auto path = file.getFullPathName().toStdString();

    if (number > 0)
        path.append(".").append(std::to_string(number));

    return {std::u8string(path.begin(), path.end())};
}

} // namespace

RotatingFile::RotatingFile(const std::string& filePath, int64_t maximumSize, int numOldFiles)
    : path(filePath),
      file(juce::File::getCurrentWorkingDirectory().getChildFile(
          juce::String::fromUTF8(filePath.c_str()))),
      maxSize(maximumSize),
      keep(numOldFiles),
      sizeLimit(maximumSize)
{}

std::string RotatingFile::write(std::string_view lines)
{
    const auto problemBefore = std::exchange(problem, {});

    while (!lines.empty() && open())
    {
        auto fitting = countFittingBytes(lines);

        if (fitting == 0)
        {
            if (size > 0)
                rotate();

            fitting = std::min(lines.find('\n'), lines.size() - 1) + 1;
        }

        if (open())
            append(lines.substr(0, fitting));

        lines.remove_prefix(fitting);
    }

    return problem != problemBefore ? problem : std::string();
}

/** The length of the whole lines for which the file has room. */
size_t RotatingFile::countFittingBytes(std::string_view lines) const
{
    const auto room = static_cast<size_t>(std::max<int64_t>(0, sizeLimit - size));

    if (lines.size() <= room)
        return lines.size();

    return room == 0 ? 0 : lines.rfind('\n', room - 1) + 1;
}

void RotatingFile::append(std::string_view lines)
{
    const auto written = output.write(lines.data(), lines.size());
    size += static_cast<int64_t>(written);

    if (written == lines.size())
        return;

    problem = "cannot write to " + path + ": " + describeSystemError(getLastSystemError());

    // Half a line would look like one of the program's.
    output.removeLast(written);
    size -= static_cast<int64_t>(written);
}

bool RotatingFile::open()
{
    if (output.isOpen())
        return true;

    if (!output.open(file))
    {
        problem = "cannot open " + path + ": " + describeSystemError(getLastSystemError());
        return false;
    }

    size = file.getSize();
    return true;
}

void RotatingFile::rotate()
{
    output.close();

    if (const auto why = moveFiles(); !why.empty())
    {
        problem = "cannot rotate " + path + ": " + why;
        sizeLimit = size + maxSize;
        return;
    }

    sizeLimit = maxSize;
}

/** Renames the oldest file first. Stops at a file that cannot be renamed, so that none is replaced
    that has not been moved. Returns the system's text for a failure. */
std::string RotatingFile::moveFiles() const
{
    std::error_code error;

    if (keep == 0)
        std::filesystem::remove(getOldPath(file, 0), error);

    for (int number = keep - 1; number >= 0 && !error; --number)
        if (std::filesystem::exists(getOldPath(file, number), error))
            std::filesystem::rename(getOldPath(file, number), getOldPath(file, number + 1), error);

    return error ? describeSystemError(error.value()) : std::string();
}

} // namespace quelta::execslave
