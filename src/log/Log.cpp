#include "log/Log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "log/LogCore.h"

namespace quelta {

namespace {

WallClock wallClock = juce::Time::currentTimeMillis;

/** A line being built on the stack of the thread that logs it. */
class LogLine
{
public:
    explicit LogLine(const char* prefix)
    {
        if (flags::logTime != 0)
            writeTime();

        if (flags::logPrefix != 0)
            writePrefix(prefix);

        text[length] = '\0';
    }

    void appendFormatted(const char* format, va_list arguments)
    {
        std::vsnprintf(text + length, capacity - length, format, arguments);
    }

    void append(const char* bytes)
    {
        const auto taken = std::min(std::strlen(bytes), capacity - 1 - length);
        std::memcpy(text + length, bytes, taken);
        text[length + taken] = '\0';
    }

    const char* get() const { return text; }

private:
    /** "[hh:mm:ss.mmm] ", the time of day, UTC. Not by printf, which would take longer than the
        text itself. */
    void writeTime()
    {
        constexpr juce::int64 millisecondsOfDay = 86'400'000;
        const auto time = static_cast<unsigned>(wallClock() % millisecondsOfDay);
        writeCharacter('[');
        writeDigits(time / 3'600'000, 2);
        writeCharacter(':');
        writeDigits(time / 60'000 % 60, 2);
        writeCharacter(':');
        writeDigits(time / 1'000 % 60, 2);
        writeCharacter('.');
        writeDigits(time % 1'000, 3);
        writeCharacter(']');
        writeCharacter(' ');
    }

    /** The first ten characters, padded with blanks, then ": "; only blanks without a prefix. */
    void writePrefix(const char* prefix)
    {
        constexpr size_t longestPrefix = 10;
        const auto taken = prefix != nullptr ? strnlen(prefix, longestPrefix) : 0;

        for (size_t i = 0; i < longestPrefix; ++i)
            writeCharacter(i < taken ? prefix[i] : ' ');

        writeCharacter(taken > 0 ? ':' : ' ');
        writeCharacter(' ');
    }

    void writeDigits(unsigned value, size_t count)
    {
        for (auto i = count; i > 0; --i, value /= 10)
            text[length + i - 1] = static_cast<char>('0' + value % 10);

        length += count;
    }

    void writeCharacter(char character) { text[length++] = character; }

    static constexpr size_t capacity = 102'400; ///< Bytes, the final NUL included.

    size_t length = 0;   ///< Bytes of time and prefix.
    char text[capacity]; // never cleared as a whole: that would cost more than the line
};

void logFormatted(const char* prefix, const char* format, va_list arguments)
{
    LogLine line(prefix);
    line.appendFormatted(format, arguments);
    Log::get().dispatch(line.get());
}

void logWithLocalTime(const char* text)
{
    logString("", text + juce::Time(wallClock()).formatted("%d.%m.%y %H:%M:%S"));
}

void addChosenSinks(Log& log)
{
    if (flags::logToStdout != 0)
        addLogSink(writeToConsole);

    if (flags::logToDebugConsole != 0)
        addLogSink(writeToDebugConsole);

    if (flags::logToFile != 0)
    {
        addLogSink(writeToLogFile);

        if (flags::logFlushTime > 0)
        {
            log.flushTimer.reset(); // never two at a time
            log.flushTimer = std::make_unique<Log::LogFlushTimer>();
        }
    }
}

/** Never destroyed: the framework may log until the process ends, and its own clean-up does not
    expect its logger to go first. */
JuceLog& getJuceLog()
{
    static auto* const juceLog = new JuceLog;
    return *juceLog;
}

} // namespace

void setLogClock(WallClock clock)
{
    wallClock = clock != nullptr ? clock : juce::Time::currentTimeMillis;
}

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

void initLog(const char* folder)
{
    auto& log = Log::get();
    const std::scoped_lock sl(log.lock);

    log.fileSettings.clear();
    log.file.setFileName(FileName::combine(FileName(folder), FileName("quelta_daemon_log.txt")));

    if (getLogFlagRegistry() != nullptr)
        readLogFlagsFile(
            FileName::combine(FileName(folder), FileName("quelta_daemon_log_flags.txt"))
                .toJuceFile(),
            log.fileSettings);

    addChosenSinks(log);

    if (flags::logJuce != 0)
        juce::Logger::setCurrentLogger(&getJuceLog());

    logWithLocalTime("Started logging on ");

    if (flags::logFlags != 0)
        dumpLogFlags();

    logUnprefixed("%s", "");
}

void shutdownLog()
{
    auto& log = Log::get();
    const std::scoped_lock sl(log.lock);

    logUnprefixed("%s", "");
    logWithLocalTime("Stopped logging on ");
    logUnprefixed("%s", "");

    log.flushTimer.reset();
    log.sinkCount = 0;
    log.file.close();
}

} // namespace quelta
