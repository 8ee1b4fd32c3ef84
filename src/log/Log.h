// The log: hands each finished line of text to every enabled sink.
//
// Any thread may log. A line is built on the caller's stack without allocation and then given to
// all sinks under one lock: lines never mix, and every sink sees the same order. There are no
// sinks before initLog and after shutdownLog; log calls are silent then.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <mutex>

#include <juce_events/juce_events.h>

#include "log/LogFile.h"
#include "log/LogFlags.h"

#define QUELTA_PRINTF_FORMAT(formatIndex, firstArgument) \
    __attribute__((format(printf, formatIndex, firstArgument)))

/** Logs under the flag `daemon`. The arguments are evaluated only if the flag is set. */
#define QUELTA_LOG_DAEMON(...)                          \
    do                                                  \
    {                                                   \
        if (::quelta::flags::daemon != 0)               \
            ::quelta::logPrintf("daemon", __VA_ARGS__); \
    } while (false)

/** Logs under the flag `daemonDetail`. The arguments are evaluated only if the flag is set. */
#define QUELTA_LOG_DAEMON_DETAIL(...)                   \
    do                                                  \
    {                                                   \
        if (::quelta::flags::daemonDetail != 0)         \
            ::quelta::logPrintf("daemon", __VA_ARGS__); \
    } while (false)

namespace quelta {

namespace test {
class LogAccess;
}

/** Writes a finished line: UTF-8, without a line end. Called under the log lock. */
using LogSink = void (*)(const char* line);

/** Logs a line with a prefix, which may be empty. Cuts lines longer than 102,399 bytes. */
void logPrintf(const char* prefix, const char* format, ...) QUELTA_PRINTF_FORMAT(2, 3);

/** Logs a line without a prefix. */
void logUnprefixed(const char* format, ...) QUELTA_PRINTF_FORMAT(1, 2);

/** Logs an error. Errors reach every sink; no flag suppresses them. */
void logError(const char* format, ...) QUELTA_PRINTF_FORMAT(1, 2);

/** Logs a finished text. Its length is not limited if time stamps and prefixes are off. */
void logString(const char* prefix, const juce::String& text);

/** Adds a sink unless it is already present. Returns false for null, and if there are 16 sinks. */
bool addLogSink(LogSink sink);

/** Writes the buffered lines to the log file. */
void flushLog();

/** Starts logging: reads the flags file in `folder`, adds the chosen sinks, logs the first lines.
    `folder` is a full path in UTF-8. Message thread; a flush timer needs JUCE's message
    manager. */
void initLog(const char* folder);

/** Logs the last lines, removes the sinks and closes the log file. Message thread. */
void shutdownLog();

/** The process-wide log behind the functions above. `lock` guards every member. It is recursive
    because sinks, and code that holds it, may log. It is not juce::CriticalSection, whose priority
    inheritance makes every contended line slower. */
class Log
{
public:
    /** Flushes the log file every `logFlushTime` milliseconds, on the message thread. */
    class LogFlushTimer final : public juce::Timer
    {
    public:
        LogFlushTimer();
        void timerCallback() override;
    };

    /** Returns the only instance. Never destroyed: threads of JUCE may log until the process
        ends. */
    static Log& get();

    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    // Behind initLog, shutdownLog, addLogSink and flushLog.
    void start(const char* folder);
    void stop();
    bool addSink(LogSink sink);
    void flush();

    /** Gives a finished line to every sink, in the order in which they were added. */
    void dispatch(const char* line);

private:
    friend class test::LogAccess; // resets the log between unit tests

    static constexpr size_t maxSinks = 16;

    Log() = default;
    void addChosenSinks();
    static void writeToFile(const char* line);

    std::recursive_mutex lock;
    std::array<LogSink, maxSinks> sinks{};
    size_t sinkCount = 0;
    LogFile file;
    std::unique_ptr<LogFlushTimer> flushTimer;
};

} // namespace quelta
