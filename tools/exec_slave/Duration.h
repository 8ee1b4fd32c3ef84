// Time as the session and its decisions use it.
#pragma once

#include <chrono>
#include <string>

namespace quelta::execslave {

/** Milliseconds since some moment before this process started. The time that the machine sleeps
    does not count, as in the daemon's own limits. Any thread. */
std::chrono::milliseconds getAwakeTime();

/** Formats a duration for messages: "60 s", "0.5 s". */
std::string describeSeconds(std::chrono::milliseconds duration);

} // namespace quelta::execslave
