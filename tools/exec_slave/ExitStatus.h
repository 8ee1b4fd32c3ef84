// The exit statuses of the exec slave itself. Otherwise it passes on the program's status: 128 plus
// the signal's number if a signal ended the program.
#pragma once

namespace quelta::execslave {

constexpr int exitSuccess = 0;
constexpr int exitBadConfiguration = 2; ///< The configuration or the command line is wrong.
constexpr int exitNoDaemon = 121;       ///< The daemon cannot be reached.
constexpr int exitNotStarted = 122;     ///< The program cannot be started.
constexpr int exitErrorLine = 123;      ///< A line of output matched one of the errors.
constexpr int exitNotReady = 124;       ///< The program was not ready in time.

} // namespace quelta::execslave
