// The state behind Log.h.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>

#include <juce_events/juce_events.h>

#include "log/Log.h"
#include "log/LogFile.h"

namespace quelta {

/** The process-wide log. Made on first use and never destroyed, because threads of the framework
    may log until the process ends. `lock` guards every member; it is recursive because log calls
    are made while it is held. (The framework's own lock inherits priorities, for which every
    contended line would pay.) */
class Log
{
public:
    class LogFlushTimer;

    static Log& get();

    /** Gives a finished line to every sink, in table order. */
    void dispatch(const char* line);

    std::recursive_mutex lock;
    std::array<LogSink, 16> sinks{};
    int32_t sinkCount = 0;
    LogFile file;
    std::unique_ptr<LogFlushTimer> flushTimer;
    LogFlagFileSettings fileSettings; ///< What the flags file said, unknown names included.

private:
    Log() = default;
};

/** Flushes the log file every `logFlushTime` milliseconds, on the message thread. */
class Log::LogFlushTimer final : public juce::Timer
{
public:
    LogFlushTimer();
    void timerCallback() override;
};

/** Brings what the framework logs into the log. Any thread. */
class JuceLog final : public juce::Logger
{
public:
    void logMessage(const juce::String& message) override;
};

/** The sinks of this program. */
void writeToConsole(const char* line);
void writeToDebugConsole(const char* line);
void writeToLogFile(const char* line);

/** Milliseconds since the epoch, UTC. */
using WallClock = juce::int64 (*)();

/** Lets a test say what time it is; null brings the system's clock back. */
void setLogClock(WallClock clock);

} // namespace quelta
