// Asks the parent of a process to end, as Windows and its tools do. Arguments: the id of the
// process and the method:
//   close        posts WM_CLOSE to all its top-level windows (taskkill, Task Scheduler)
//   quit         posts WM_QUIT to all its threads (service wrappers)
//   end-session  asks its windows whether the session may end, tells them that it does, and then
//                terminates the process (log-off, shutdown)
//   break, close-console, log-off, shutdown
//                runs its handlers of this console event on a new thread, as the console host does,
//                and terminates the process when they have returned or timed out; not after break
// Exits with 0 if the parent exists and was asked.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "ParentProcess.h"

namespace {

constexpr UINT windowsTimeoutMs = 5'000;
constexpr UINT forcedStatus = 9;

struct ConsoleEvent
{
    std::string_view name;
    DWORD number = 0;
};

constexpr std::array<ConsoleEvent, 4> consoleEvents{{{"break", CTRL_BREAK_EVENT},
                                                     {"close-console", CTRL_CLOSE_EVENT},
                                                     {"log-off", CTRL_LOGOFF_EVENT},
                                                     {"shutdown", CTRL_SHUTDOWN_EVENT}}};

struct WindowVisit
{
    DWORD process = 0;
    std::function<bool(HWND)> visit;
    int visited = 0;
    bool agreed = true;
};

BOOL CALLBACK visitWindow(HWND window, LPARAM parameter)
{
    auto& task = *reinterpret_cast<WindowVisit*>(parameter);
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);

    if (process == task.process)
    {
        ++task.visited;
        task.agreed = task.visit(window) && task.agreed;
    }

    return TRUE;
}

/** Returns true if there are windows and every visit succeeded. */
bool visitWindows(DWORD process, std::function<bool(HWND)> visit)
{
    WindowVisit task{process, std::move(visit)};
    EnumWindows(visitWindow, reinterpret_cast<LPARAM>(&task));
    return task.visited > 0 && task.agreed;
}

bool closeWindows(DWORD process)
{
    return visitWindows(process,
                        [](HWND window) { return PostMessageW(window, WM_CLOSE, 0, 0) != FALSE; });
}

/** Threads without a message queue accept no message, so one success is enough. */
bool quitThreads(DWORD process)
{
    auto* const all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    bool asked = false;

    for (auto more = Thread32First(all, &entry); more != FALSE; more = Thread32Next(all, &entry))
        if (entry.th32OwnerProcessID == process)
            asked = PostThreadMessageW(entry.th32ThreadID, WM_QUIT, 0, 0) != FALSE || asked;

    CloseHandle(all);
    return asked;
}

bool ask(HWND window, UINT message, WPARAM parameter, DWORD_PTR expected)
{
    DWORD_PTR answer = 0;
    return SendMessageTimeoutW(window, message, parameter, 0, SMTO_NORMAL, windowsTimeoutMs,
                               &answer) != 0 &&
           answer == expected;
}

bool endSession(DWORD process)
{
    auto* const handle = OpenProcess(PROCESS_TERMINATE, FALSE, process);

    if (!visitWindows(process,
                      [](HWND window) { return ask(window, WM_QUERYENDSESSION, 0, TRUE); }))
        return false;

    // The process may end before its windows answer, so the answers do not matter.
    visitWindows(process, [](HWND window) { return ask(window, WM_ENDSESSION, TRUE, 0); });
    TerminateProcess(handle, forcedStatus);
    return true;
}

/** Works because Windows maps system libraries at the same address in every process. */
bool raiseConsoleEvent(DWORD process, DWORD event)
{
    constexpr auto access = PROCESS_CREATE_THREAD | PROCESS_QUERY_INFORMATION |
                            PROCESS_VM_OPERATION | PROCESS_VM_WRITE | PROCESS_VM_READ |
                            PROCESS_TERMINATE;
    auto* const handle = OpenProcess(access, FALSE, process);
    auto* const routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine")));

    if (handle == nullptr || routine == nullptr)
        return false;

    auto* const thread = CreateRemoteThread(handle, nullptr, 0, routine,
                                            reinterpret_cast<void*>(uintptr_t{event}), 0, nullptr);

    if (thread == nullptr)
        return false;

    if (event == CTRL_BREAK_EVENT)
        return true;

    WaitForSingleObject(thread, windowsTimeoutMs);
    TerminateProcess(handle, forcedStatus);
    return true;
}

bool request(DWORD process, std::string_view method)
{
    if (method == "close")
        return closeWindows(process);

    if (method == "quit")
        return quitThreads(process);

    if (method == "end-session")
        return endSession(process);

    for (const auto& [name, event] : consoleEvents)
        if (method == name)
            return raiseConsoleEvent(process, event);

    return false;
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 3)
        return 2;

    const auto parent = describeParent(static_cast<DWORD>(std::atoi(arguments[1])));
    return parent.th32ProcessID != 0 && request(parent.th32ProcessID, arguments[2]) ? 0 : 1;
}
