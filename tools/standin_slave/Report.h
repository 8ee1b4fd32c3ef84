// The stand-in's report on standard output. Not thread-safe: the stand-in has one thread.
#pragma once

#include <string>

namespace quelta {

/** Prints "standin: " and a formatted line, and flushes. The prefix tells the stand-in's lines from
    those of the daemon, which usually shares its standard output with its slave. */
void report(const char* format, ...) __attribute__((format(printf, 1, 2)));

/** Escapes control characters as \xNN, so that `text` stays on one line. A backslash before an x
    becomes \x5C, which keeps the result unambiguous; other backslashes stay as they are. */
std::string escapeForReport(const std::string& text);

} // namespace quelta
