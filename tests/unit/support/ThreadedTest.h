// Base of tests that run threads of the program: captures the log, fails when JUCE kills a thread
// or asserts, and aborts the program when a test hangs.
//
// Log flags are read without a lock, so tests set them before they start a thread that logs.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>

#include "HangGuard.h"
#include "JuceLogCapture.h"
#include "LogCapture.h"

namespace quelta::test {

class ThreadedTest : public testing::Test
{
protected:
    ThreadedTest() { flags::daemon = 1; }

    ~ThreadedTest() override { EXPECT_EQ(juceLog.getMessages(), std::vector<std::string>{}); }

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

    /** Waits for a line of this form and returns the number that it has in place of `#`. */
    std::optional<uint32_t> waitForNumberIn(const std::string& form) const
    {
        const auto begin = form.substr(0, form.find('#'));
        const auto end = form.substr(form.find('#') + 1);

        const auto line = log.waitForMatch(
            [&](const auto& logged) { return logged.starts_with(begin) && logged.ends_with(end); });

        if (!line)
            return {};

        return static_cast<uint32_t>(std::stoul(line->substr(begin.size())));
    }

    /** Polls a condition that has no event to wait for; false after the time limit. */
    template <typename Condition>
    static bool pollUntil(Condition condition)
    {
        const auto start = juce::Time::getMillisecondCounter();

        while (!condition())
        {
            if (juce::Time::getMillisecondCounter() - start > hangLimitMs)
                return false;

            juce::Thread::sleep(1);
        }

        return true;
    }

    /** Moves what follows to another moment of a race. Any moment has to give the same result, so
        the delay only decides which one the test covers. */
    static void shiftMoment(int milliseconds) { juce::Thread::sleep(milliseconds); }

    /** Gives another thread time to reach the lock that it is about to wait for, which nothing
        reports. If it takes longer, the test covers an earlier moment: it is weaker, but passes. */
    static void allowArrivalAtLock(int milliseconds = 50) { juce::Thread::sleep(milliseconds); }

    /** The duration of `action` in milliseconds. */
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
    JuceLogCapture juceLog;

private:
    HangGuard hangGuard;
};

} // namespace quelta::test
