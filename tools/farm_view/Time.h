// Points in time of the farm view: UTC with milliseconds. Pure functions.
#pragma once

#include <chrono>
#include <string>

namespace quelta::farmview {

using Time = std::chrono::sys_time<std::chrono::milliseconds>;

/** "2026-11-20T23:15:16.702Z". */
std::string formatTime(Time time);

/** Seconds since 1970. */
double toSeconds(Time time);

} // namespace quelta::farmview
