// Finds the parent of a process by its Windows id. Under Wine these ids differ from those of the
// host system, so only Windows functions can look them up.
#pragma once

#include <windows.h>

#include <tlhelp32.h>

/** The system's description of a process; all zero if there is no such process. */
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

/** The system's description of the parent of a process. */
inline PROCESSENTRY32W describeParent(DWORD process)
{
    return describeProcess(describeProcess(process).th32ParentProcessID);
}
