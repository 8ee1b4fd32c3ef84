// A log line under construction, on the stack of the thread that logs it.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace quelta {

class LogLine
{
public:
    /** Starts the line with the time and the prefix, as far as the flags ask for them. */
    explicit LogLine(const char* prefix);

    /** Append a text, cut to the space that is left. Only one call a line. */
    void appendFormatted(const char* format, va_list arguments);
    void append(const char* bytes);

    const char* get() const { return text; }

private:
    void writeTime();
    void writePrefix(const char* prefix);
    void writeDigits(unsigned value, size_t count);
    void writeCharacter(char character) { text[length++] = character; }

    static constexpr size_t capacity = 102'400; ///< Bytes, with the terminating NUL.

    size_t length = 0; ///< Bytes of time and prefix.

    /** Not initialised: clearing it would take longer than logging the line. */
    char text[capacity];
};

} // namespace quelta
