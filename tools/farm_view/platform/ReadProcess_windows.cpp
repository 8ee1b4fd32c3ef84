#include "farm_view/platform/ReadProcess.h"

#include <windows.h>

// After windows.h, which it needs.
#include <psapi.h>

namespace quelta::farmview {

namespace {

/** Seconds of a time in units of 100 ns. */
double toSeconds(const FILETIME& time)
{
    return static_cast<double>((uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime) / 1e7;
}

constexpr double secondsFrom1601To1970 = 11644473600;

} // namespace

ProcessFigures readProcessFigures()
{
    ProcessFigures figures;
    const auto process = GetCurrentProcess();
    FILETIME start{};
    FILETIME end{};
    FILETIME kernel{};
    FILETIME user{};

    if (GetProcessTimes(process, &start, &end, &kernel, &user) != 0)
    {
        figures.cpuSeconds = toSeconds(kernel) + toSeconds(user);
        figures.startSeconds = toSeconds(start) - secondsFrom1601To1970;
    }

    PROCESS_MEMORY_COUNTERS memory{};

    if (K32GetProcessMemoryInfo(process, &memory, sizeof(memory)) != 0)
    {
        figures.residentBytes = memory.WorkingSetSize;
        figures.virtualBytes = memory.PagefileUsage;
    }

    DWORD handles = 0;

    if (GetProcessHandleCount(process, &handles) != 0)
        figures.openFiles = handles;

    return figures;
}

} // namespace quelta::farmview
