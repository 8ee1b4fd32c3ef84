// The signal that asks a program to end.
#pragma once

namespace quelta {

/** SIGTERM; on Windows SIGBREAK, which Ctrl-Break raises. */
int stopNumber();

} // namespace quelta
