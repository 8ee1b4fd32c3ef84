// Where a debugger or the system listens for a program's messages.
#pragma once

namespace quelta::platform {

/** Sends one line, UTF-8 without a line end: to the debugger on Windows, to the system log
    elsewhere. */
void writeDebugLine(const char* line);

} // namespace quelta::platform
