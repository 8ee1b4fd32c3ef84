// The console behind the standard streams. A Windows console takes UTF-16; everything else (a
// file, a pipe, a Linux terminal) takes bytes through the standard library.
#pragma once

#include <string>
#include <string_view>

namespace quelta::platform {

enum class StandardStream
{
    output,
    error
};

/** A console that takes UTF-16. Called under the log lock. */
class Console
{
public:
    virtual ~Console() = default;

    /** Whether the stream is attached to such a console. Called for every line. */
    virtual bool isRealConsole(StandardStream stream) = 0;

    /** Writes all of `text`, NULs included. */
    virtual void write(StandardStream stream, std::u16string_view text) = 0;
};

/** Returns the active console: the system's, unless a test has replaced it. */
Console& getConsole();

/** Replaces the active console in a test; null restores the system's. Only while no thread
    logs. */
void setConsole(Console* replacement);

/** Disables text selection by mouse (QuickEdit): while text is selected, Windows blocks all writes
    to the console, and with them all threads that log. No-op unless standard input is a console.
    Console events that end the process restore the selection. */
void disableConsoleSelection();

/** Restores the console's mode. Idempotent. */
void restoreConsoleSelection();

/** Converts UTF-8 to UTF-16 as the system does. The last character is the terminating NUL. */
std::u16string toTerminatedUtf16(const char* utf8);

} // namespace quelta::platform
