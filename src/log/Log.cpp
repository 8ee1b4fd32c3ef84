#include "log/Log.h"

#include <algorithm>
#include <cstdarg>

#include "log/JuceLog.h"
#include "log/LogClock.h"
#include "log/LogLine.h"
#include "log/LogSinks.h"

namespace quelta {

namespace {

void logFormatted(const char* prefix, const char* format, va_list arguments)
{
    LogLine line(prefix);
    line.appendFormatted(format, arguments);
    Log::get().dispatch(line.get());
}

void logWithLocalTime(const char* text)
{
    logString("", text + juce::Time(getLogTime()).formatted("%d.%m.%y %H:%M:%S"));
}

FileName inFolder(const char* folder, const char* name)
{
    return FileName::combine(FileName(folder), FileName(name));
}

} // namespace

void logPrintf(const char* prefix, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    logFormatted(prefix, format, arguments);
    va_end(arguments);
}

void logUnprefixed(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    logFormatted("", format, arguments);
    va_end(arguments);
}

void logError(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    logFormatted("ERROR", format, arguments);
    va_end(arguments);
}

void logString(const char* prefix, const juce::String& text)
{
    if (flags::logTime == 0 && flags::logPrefix == 0)
    {
        Log::get().dispatch(text.toRawUTF8());
        return;
    }

    LogLine line(prefix);
    line.append(text.toRawUTF8());
    Log::get().dispatch(line.get());
}

bool addLogSink(LogSink sink)
{
    return Log::get().addSink(sink);
}

void flushLog()
{
    Log::get().flush();
}

void initLog(const char* folder)
{
    Log::get().start(folder);
}

void shutdownLog()
{
    Log::get().stop();
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

Log& Log::get()
{
    static auto* const log = new Log;
    return *log;
}

void Log::start(const char* folder)
{
    const std::scoped_lock sl(lock);
    file.setFileName(inFolder(folder, "quelta_daemon_log.txt"));

    if (getLogFlagRegistry() != nullptr)
        readLogFlagsFile(inFolder(folder, "quelta_daemon_log_flags.txt").toJuceFile());

    addChosenSinks();

    if (flags::logJuce != 0)
        juce::Logger::setCurrentLogger(&JuceLog::get());

    logWithLocalTime("Started logging on ");

    if (flags::logFlags != 0)
        dumpLogFlags();

    logUnprefixed("%s", "");
}

void Log::stop()
{
    const std::scoped_lock sl(lock);

    logUnprefixed("%s", "");
    logWithLocalTime("Stopped logging on ");
    logUnprefixed("%s", "");

    flushTimer.reset();
    sinkCount = 0;
    file.close();
}

bool Log::addSink(LogSink sink)
{
    const std::scoped_lock sl(lock);

    if (sink == nullptr || sinkCount == maxSinks)
        return false;

    const auto end = sinks.begin() + sinkCount;

    if (std::find(sinks.begin(), end, sink) == end)
        sinks[sinkCount++] = sink;

    return true;
}

void Log::flush()
{
    const std::scoped_lock sl(lock);
    file.flush();
}

void Log::dispatch(const char* line)
{
    const std::scoped_lock sl(lock);

    for (size_t i = 0; i < sinkCount; ++i)
        sinks[i](line);
}

void Log::addChosenSinks()
{
    if (flags::logToStdout != 0)
        addSink(writeToConsole);

    if (flags::logToDebugConsole != 0)
        addSink(writeToDebugConsole);

    if (flags::logToFile == 0)
        return;

    addSink(writeToFile);

    if (flags::logFlushTime > 0)
    {
        flushTimer.reset(); // never two timers at a time
        flushTimer = std::make_unique<LogFlushTimer>();
    }
}

void Log::writeToFile(const char* line)
{
    get().file.writeLine(line);
}

} // namespace quelta
