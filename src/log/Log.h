// The log: one finished line of text at a time to every enabled sink.
//
// Any thread may log. A line is built on the caller's stack without allocation, then given to all
// sinks under one recursive lock, so that lines never mix and every sink sees the same order.
// Before initLog and after shutdownLog there are no sinks and calls are silent.
#pragma once

#include <cstdint>

#include <juce_core/juce_core.h>

#include "log/LogFlags.h"

#define QUELTA_PRINTF_FORMAT(formatIndex, firstArgument) \
    __attribute__((format(printf, formatIndex, firstArgument)))

/** Logs under the flag `daemon`; the arguments are evaluated only when it is set. */
#define QUELTA_LOG_DAEMON(...)                          \
    do                                                  \
    {                                                   \
        if (::quelta::flags::daemon != 0)               \
            ::quelta::logPrintf("daemon", __VA_ARGS__); \
    } while (false)

/** Logs under the flag `daemonDetail`; the arguments are evaluated only when it is set. */
#define QUELTA_LOG_DAEMON_DETAIL(...)                   \
    do                                                  \
    {                                                   \
        if (::quelta::flags::daemonDetail != 0)         \
            ::quelta::logPrintf("daemon", __VA_ARGS__); \
    } while (false)

namespace quelta {

/** Takes a finished line, UTF-8, without a line end. Called under the log lock. */
using LogSink = void (*)(const char* line);

/** Logs a line with a prefix, which may be empty. A line longer than 102,399 bytes is cut. */
void logPrintf(const char* prefix, const char* format, ...) QUELTA_PRINTF_FORMAT(2, 3);

/** Logs a plain report line. */
void logUnprefixed(const char* format, ...) QUELTA_PRINTF_FORMAT(1, 2);

/** Logs an error; errors reach every sink whatever the flags say. */
void logError(const char* format, ...) QUELTA_PRINTF_FORMAT(1, 2);

/** Logs a text that is already built; without timestamps and prefixes it may be of any length. */
void logString(const char* prefix, const juce::String& text);

/** Adds a sink unless it is there already. False for null and when 16 sinks are there. */
bool addLogSink(LogSink sink);

/** Writes what the log file still buffers. */
void flushLog();

/** Starts logging: reads the flags file in `folder`, chooses the sinks, logs the first lines.
    `folder` is a full path in UTF-8. On the message thread, once; needs a message manager if a
    flush timer is asked for. */
void initLog(const char* folder);

/** Logs the last lines and closes the log file. On the message thread. */
void shutdownLog();

} // namespace quelta
