// The stand-in's own process: its id, and how it crashes.
#pragma once

namespace quelta {

unsigned long getProcessId();

/** Ends the process at once, as a crash would, but without a core file or a dialog box. */
[[noreturn]] void crashProcess();

} // namespace quelta
