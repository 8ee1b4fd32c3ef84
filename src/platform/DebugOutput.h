// Output for debuggers (Windows) or the system log (Linux).
#pragma once

namespace quelta::platform {

/** Sends a line: UTF-8, without a line end. */
void writeDebugLine(const char* line);

} // namespace quelta::platform
