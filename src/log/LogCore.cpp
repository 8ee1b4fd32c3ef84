#include "log/LogCore.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "platform/Console.h"
#include "platform/DebugOutput.h"

namespace quelta {

Log& Log::get()
{
    static auto* const log = new Log;
    return *log;
}

void Log::dispatch(const char* line)
{
    const std::scoped_lock sl(lock);

    for (int32_t i = 0; i < sinkCount; ++i)
        sinks[static_cast<size_t>(i)](line);
}

bool addLogSink(LogSink sink)
{
    auto& log = Log::get();
    const std::scoped_lock sl(log.lock);

    if (sink == nullptr || log.sinkCount == static_cast<int32_t>(log.sinks.size()))
        return false;

    const auto end = log.sinks.begin() + log.sinkCount;

    if (std::find(log.sinks.begin(), end, sink) == end)
        log.sinks[static_cast<size_t>(log.sinkCount++)] = sink;

    return true;
}

void flushLog()
{
    auto& log = Log::get();
    const std::scoped_lock sl(log.lock);
    log.file.flush();
}

Log::LogFlushTimer::LogFlushTimer()
{
    if (flags::logFlushTime < 1)
        logError("invalid log flush interval");
    else
        startTimer(flags::logFlushTime);
}

void Log::LogFlushTimer::timerCallback()
{
    flushLog();
}

void JuceLog::logMessage(const juce::String& message)
{
    logString("JUCE", message);
}

void writeToConsole(const char* line)
{
    const bool toError = flags::logToStdout == 2;
    const auto stream =
        toError ? platform::StandardStream::error : platform::StandardStream::output;
    auto& console = platform::getConsole();

    if (console.isRealConsole(stream))
    {
        // The terminating NUL is written too: a reader of the console has always seen it there.
        console.write(stream, platform::toTerminatedUtf16(line));
        console.write(stream, u"\n");
    }
    else if (toError)
    {
        std::fputs(line, stderr);
        std::fputs("\n", stderr);
    }
    else
    {
        // Whoever reads a file or a pipe wants each line at once.
        std::puts(line);
        std::fflush(stdout);
    }
}

void writeToDebugConsole(const char* line)
{
    platform::writeDebugLine(line);
}

void writeToLogFile(const char* line)
{
    Log::get().file.writeLine(line);
}

} // namespace quelta
