// Captures what the code under test logs, and gives every test the log of a program that has just
// started: all flags are 0 and the capturing sink is the only one. The destructor puts the flags
// back and leaves no sink.
//
// One at a time, made and destroyed while no other thread logs. In between any thread may log and
// ask; a lock of its own guards the lines, so that asking never waits for a sink.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "LogAccess.h"

namespace quelta::test {

using Lines = std::vector<std::string>;

class LogCapture
{
public:
    /** How long to wait for a line that has to come. Only a test that fails waits so long. */
    static constexpr std::chrono::seconds hangLimit{60};

    LogCapture()
    {
        for (const auto& [name, flag] : *getLogFlagRegistry())
            savedFlags.emplace_back(flag.value, std::exchange(*flag.value, 0));

        removeAllSinks();
        clear();
        addLogSink(take);
    }

    ~LogCapture()
    {
        removeAllSinks();

        for (const auto& [variable, value] : savedFlags)
            *variable = value;
    }

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /** A copy of the lines so far. */
    Lines lines() const
    {
        const std::lock_guard guard(captured.lock);
        return captured.lines;
    }

    void clear()
    {
        const std::lock_guard guard(captured.lock);
        captured.lines.clear();
    }

    /** Waits until the line has been logged; false if it does not come in a long time. */
    bool waitForLine(const std::string& line) const
    {
        std::unique_lock guard(captured.lock);
        return captured.changed.wait_for(guard, hangLimit, [&line] {
            return std::find(captured.lines.begin(), captured.lines.end(), line) !=
                   captured.lines.end();
        });
    }

    static void removeAllSinks() { LogAccess::removeAllSinks(); }

private:
    struct Captured
    {
        std::mutex lock;
        std::condition_variable changed;
        Lines lines;
    };

    static void take(const char* line)
    {
        const std::lock_guard guard(captured.lock);
        captured.lines.emplace_back(line);
        captured.changed.notify_all();
    }

    static inline Captured captured; // a sink is a plain function and has nothing else to write to
    std::vector<std::pair<int32_t*, int32_t>> savedFlags;
};

} // namespace quelta::test
