// Captures what this process sends to the debugger (Windows) or the system log (Linux).
#pragma once

#include <string>

namespace quelta::test {

/** One instance at a time. Captures the output of the thread that created it. */
class DebugOutputCapture
{
public:
    DebugOutputCapture();
    ~DebugOutputCapture();

    DebugOutputCapture(const DebugOutputCapture&) = delete;
    DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;

    /** Everything so far. Each call adds a line end where the system log would. */
    static std::string getReceived();
};

} // namespace quelta::test
