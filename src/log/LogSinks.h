// The sinks that need no state of the log's. Called under the log lock.
#pragma once

namespace quelta {

/** Writes the line to standard error if `logToStdout` is 2, otherwise to standard output. */
void writeToConsole(const char* line);

/** Writes the line to the debugger (Windows) or to the system log (Linux). */
void writeToDebugConsole(const char* line);

} // namespace quelta
