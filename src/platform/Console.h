// The console behind the standard streams. A real console takes UTF-16 from Windows; everything
// else (a file, a pipe, any terminal of another system) takes bytes through the standard library.
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

    /** Whether the stream is attached to such a console, asked anew for every line. */
    virtual bool isRealConsole(StandardStream stream) = 0;

    /** Writes all of `text`, NULs included. */
    virtual void write(StandardStream stream, std::u16string_view text) = 0;
};

/** The console in force: the system's, unless a test has put another in its place. */
Console& getConsole();

/** Puts another console in force; null brings the system's back. For tests, before anything is
    logged. */
void setConsole(Console* replacement);

/** Keeps a click into the console from stopping the daemon: while text is selected there, Windows
    blocks every write, and with the writer all threads that log. Does nothing unless standard input
    is a console. An event that ends the process without order restores the console, too. */
void disableConsoleSelection();

/** Gives the console back its mode. */
void restoreConsoleSelection();

/** UTF-8 to UTF-16 as the system converts it, with the terminating NUL as the last character. */
std::u16string toTerminatedUtf16(const char* utf8);

} // namespace quelta::platform
