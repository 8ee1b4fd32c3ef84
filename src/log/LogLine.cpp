#include "log/LogLine.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "log/LogClock.h"
#include "log/LogFlags.h"

namespace quelta {

LogLine::LogLine(const char* prefix)
{
    if (flags::logTime != 0)
        writeTime();

    if (flags::logPrefix != 0)
        writePrefix(prefix);

    text[length] = '\0';
}

void LogLine::appendFormatted(const char* format, va_list arguments)
{
    std::vsnprintf(text + length, capacity - length, format, arguments);
}

void LogLine::append(const char* bytes)
{
    const auto taken = std::min(std::strlen(bytes), capacity - 1 - length);
    std::memcpy(text + length, bytes, taken);
    text[length + taken] = '\0';
}

/** Writes "[hh:mm:ss.mmm] ", the time of day in UTC. Without printf, which would take longer than
    the rest of the line. */
void LogLine::writeTime()
{
    constexpr int64_t millisecondsOfDay = 86'400'000;
    const auto time = static_cast<unsigned>(getLogTime() % millisecondsOfDay);
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

/** Writes the first ten characters, padded with blanks, then ": "; only blanks without a
    prefix. */
void LogLine::writePrefix(const char* prefix)
{
    constexpr size_t maxPrefixLength = 10;
    const auto taken = prefix != nullptr ? strnlen(prefix, maxPrefixLength) : 0;

    for (size_t i = 0; i < maxPrefixLength; ++i)
        writeCharacter(i < taken ? prefix[i] : ' ');

    writeCharacter(taken > 0 ? ':' : ' ');
    writeCharacter(' ');
}

void LogLine::writeDigits(unsigned value, size_t count)
{
    for (auto i = count; i > 0; --i, value /= 10)
        text[length + i - 1] = static_cast<char>('0' + value % 10);

    length += count;
}

} // namespace quelta
