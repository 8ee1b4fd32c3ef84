// Starts the end-to-end tests' worker, whose arguments are steps, as a contained program.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include <juce_core/juce_core.h>

#include "exec_slave/platform/ContainedProgram.h"

namespace quelta::test {

constexpr std::chrono::milliseconds endLimit{60'000};

/** The worker's file. */
inline juce::File getWorker()
{
    const auto program = juce::File::getSpecialLocation(juce::File::currentExecutableFile);
    return program.getSiblingFile("quelta_test_worker")
        .withFileExtension(program.getFileExtension());
}

inline execslave::ProgramStart makeWorkerStart(const std::vector<std::string>& steps)
{
    execslave::ProgramStart start;
    start.command = steps;
    start.command.insert(start.command.begin(), getWorker().getFullPathName().toStdString());
    return start;
}

inline std::unique_ptr<execslave::ContainedProgram> startProgram(
    const execslave::ProgramStart& start)
{
    std::string error;
    auto program = execslave::ContainedProgram::start(start, error);
    EXPECT_EQ(error, "");
    return program;
}

/** Reads until the output contains the text or ends. Returns it without carriage returns. */
inline std::string readUntil(execslave::ContainedProgram& program, const std::string& text)
{
    std::string output;
    std::array<char, 4096> buffer{};

    while (text.empty() || output.find(text) == std::string::npos)
    {
        const int count = program.read(buffer.data(), buffer.size(), endLimit);

        if (count <= 0)
            break;

        output.append(buffer.data(), static_cast<size_t>(count));
        std::erase(output, '\r');
    }

    return output;
}

/** Reads to the end of the output. */
inline std::string readAll(execslave::ContainedProgram& program)
{
    return readUntil(program, {});
}

inline std::string waitForEndText(execslave::ContainedProgram& program,
                                  std::chrono::milliseconds limit = endLimit)
{
    const auto end = program.waitForEnd(limit);
    return end ? end->text : "no end";
}

/** The output of a program that is run to its end. */
inline std::string runToEnd(const execslave::ProgramStart& start)
{
    const auto program = startProgram(start);
    return program != nullptr ? readAll(*program) : std::string();
}

} // namespace quelta::test
