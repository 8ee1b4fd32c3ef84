// Ends a process's parent by force, as the task manager does it: TerminateProcess, without a word to the
// parent. Its argument is the id of the process; its exit status is 0 if the parent has ended.
#include <windows.h>

#include <tlhelp32.h>

#include <cstdlib>

namespace {

constexpr UINT forcedStatus = 9;

/** 0 if there is no such process. */
DWORD findParent(DWORD child)
{
    auto* const all = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    DWORD parent = 0;

    for (auto more = Process32FirstW(all, &entry); more != FALSE; more = Process32NextW(all, &entry))
        if (entry.th32ProcessID == child)
            parent = entry.th32ParentProcessID;

    CloseHandle(all);
    return parent;
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 2)
        return 2;

    auto* const parent =
        OpenProcess(PROCESS_TERMINATE, FALSE, findParent(static_cast<DWORD>(std::atoi(arguments[1]))));
    return parent != nullptr && TerminateProcess(parent, forcedStatus) != FALSE ? 0 : 1;
}
