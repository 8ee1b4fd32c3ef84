#include "log/LogSinks.h"

#include <cstdio>

#include "log/LogFlags.h"
#include "platform/Console.h"
#include "platform/DebugOutput.h"

namespace quelta {

void writeToConsole(const char* line)
{
    const bool toError = flags::logToStdout == 2;
    const auto stream =
        toError ? platform::StandardStream::error : platform::StandardStream::output;
    auto& console = platform::getConsole();

    if (console.isRealConsole(stream))
    {
        // Includes the terminating NUL, which readers of the console have always received.
        console.write(stream, platform::toTerminatedUtf16(line));
        console.write(stream, u"\n");
    }
    else if (toError)
    {
        std::fputs(line, stderr);
        std::fputs("\n", stderr);
    }
    else
    {
        // Readers of a file or pipe want each line at once, but the stream is block-buffered.
        std::puts(line);
        std::fflush(stdout);
    }
}

void writeToDebugConsole(const char* line)
{
    platform::writeDebugLine(line);
}

} // namespace quelta
