// Captures what the code under test logs. Every test starts with all flags 0 and the capturing sink
// as the only sink. The destructor restores the flags and removes all sinks.
//
// One instance at a time, constructed and destroyed while no other thread logs. Meanwhile any
// thread may log and query. The lines have a lock of their own, so that a query never waits for a
// sink.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LogAccess.h"

namespace quelta::test {

using Lines = std::vector<std::string>;

class LogCapture
{
public:
    /** Limits every wait in the tests. Only failing tests wait this long. */
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

    /** Waits until the line has been logged; false after the time limit. */
    bool waitForLine(const std::string& line) const
    {
        return waitForMatch([&line](const auto& logged) { return logged == line; }).has_value();
    }

    /** Waits for the first line that `matches`; nullopt after the time limit. */
    template <typename Predicate>
    std::optional<std::string> waitForMatch(Predicate matches) const
    {
        std::unique_lock guard(captured.lock);
        auto found = captured.lines.cend();
        captured.changed.wait_for(guard, hangLimit, [&] {
            found = std::find_if(captured.lines.cbegin(), captured.lines.cend(), matches);
            return found != captured.lines.cend();
        });
        return found != captured.lines.cend() ? std::optional(*found) : std::nullopt;
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

    static inline Captured captured; // static because a sink is a plain function
    std::vector<std::pair<int32_t*, int32_t>> savedFlags;
};

} // namespace quelta::test
