// The stand-in's report on standard output. Called from its one thread.
#pragma once

#include <string>

namespace quelta {

/** Prints "standin: " and a formatted line, and flushes it at once. The prefix tells the slave's
    lines from those of the daemon, which usually shares its output with it. */
void report(const char* format, ...) __attribute__((format(printf, 1, 2)));

/** `text` with control characters as \xNN, so that it stays on its line. A backslash in front of an
    x is written as \x5C, so that no two texts look alike; other backslashes stay as they are. */
std::string escapeForReport(const std::string& text);

} // namespace quelta
