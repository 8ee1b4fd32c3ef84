// The base of tests that run threads of the program: captures the log, fails when the framework
// kills a thread or asserts, and ends the program when a test hangs.
//
// Log flags are read without a lock, so a test sets them before it starts a thread that logs.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>

#include "FrameworkLog.h"
#include "HangGuard.h"
#include "LogCapture.h"

namespace quelta::test {

class ThreadedTest : public testing::Test
{
protected:
    ThreadedTest() { flags::daemon = 1; }

    ~ThreadedTest() override { EXPECT_EQ(frameworkLog.getMessages(), std::vector<std::string>{}); }

    bool wasLogged(const std::string& line) const
    {
        const auto lines = log.lines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    Lines getFirstLines(size_t count) const
    {
        auto lines = log.lines();
        lines.resize(std::min(lines.size(), count));
        return lines;
    }

    /** The number that the first line of this form shows in place of `#`; waits for the line. */
    std::optional<uint32_t> waitForNumberIn(const std::string& form) const
    {
        const auto begin = form.substr(0, form.find('#'));
        const auto end = form.substr(form.find('#') + 1);

        for (const auto until = juce::Time::getMillisecondCounter() + hangLimitMs;
             juce::Time::getMillisecondCounter() < until; juce::Thread::sleep(1))
            for (const auto& line : log.lines())
                if (line.starts_with(begin) && line.ends_with(end))
                    return static_cast<uint32_t>(std::stoul(line.substr(begin.size())));

        return {};
    }

    /** Milliseconds that `action` takes. */
    template <typename Action>
    static uint32_t timeOf(Action action)
    {
        const auto start = juce::Time::getMillisecondCounter();
        action();
        return juce::Time::getMillisecondCounter() - start;
    }

    static constexpr uint32_t hangLimitMs =
        1000 * static_cast<uint32_t>(LogCapture::hangLimit.count());

    LogCapture log;
    FrameworkLog frameworkLog;

private:
    HangGuard hangGuard;
};

} // namespace quelta::test
