// Hears what this process sends to the debugger or to the system log, in the place of either.
#pragma once

#include <string>

namespace quelta::test {

/** One at a time. What is sent meanwhile, from this thread, is kept. */
class DebugOutputCapture
{
public:
    DebugOutputCapture();
    ~DebugOutputCapture();

    DebugOutputCapture(const DebugOutputCapture&) = delete;
    DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;

    /** All of it, as its reader sees it: the system log ends a line with each call, a debugger does
        not. */
    static std::string getReceived();
};

} // namespace quelta::test
