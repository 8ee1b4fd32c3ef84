// What the stand-in asks of the system. The source file of each system also holds the entry point.
#pragma once

namespace quelta {

unsigned long getProcessId();

/** Ends the process at once in the way of a crash, without a core file or a dialogue box. */
[[noreturn]] void crashProcess();

} // namespace quelta
