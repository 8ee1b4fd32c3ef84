// Which process has started another, as Windows knows it: Wine gives every process a number of its
// own, which only that system's calls understand.
#pragma once

#include <windows.h>

#include <tlhelp32.h>

/** What the system says about the process; all zero if there is none. */
inline PROCESSENTRY32W describeProcess(DWORD process)
{
    auto* const all = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    auto found = Process32FirstW(all, &entry);

    while (found != FALSE && entry.th32ProcessID != process)
        found = Process32NextW(all, &entry);

    CloseHandle(all);
    return found != FALSE ? entry : PROCESSENTRY32W{};
}

/** What the system says about the process that has started it. */
inline PROCESSENTRY32W describeParent(DWORD process)
{
    return describeProcess(describeProcess(process).th32ParentProcessID);
}
