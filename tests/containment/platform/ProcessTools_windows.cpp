#include "containment/platform/ProcessTools.h"

#include <windows.h>

#include "exec_slave/platform/WideText.h"

namespace quelta::test {

using execslave::joinCommandLine;
using execslave::toWide;

void ignoreEndRequests()
{
    SetConsoleCtrlHandler([](DWORD) { return TRUE; }, TRUE);
}

void makeSignalsAndDescriptorsUnusual() {}

void startOrphan(const std::vector<std::string>& command)
{
    auto line = joinCommandLine(command);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    constexpr DWORD flags = DETACHED_PROCESS | CREATE_NEW_PROCESS_GROUP;

    // A job that allows it would be left.
    if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE,
                       flags | CREATE_BREAKAWAY_FROM_JOB, nullptr, nullptr, &startup,
                       &process) == FALSE)
        CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, flags, nullptr, nullptr,
                       &startup, &process);

    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
}

bool lockFile(const std::string& path)
{
    return CreateFileW(toWide(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL, nullptr) != INVALID_HANDLE_VALUE;
}

bool isLocked(const std::string& path)
{
    auto* const file = CreateFileW(toWide(path).c_str(), GENERIC_READ,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);

    if (file == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_SHARING_VIOLATION;

    CloseHandle(file);
    return false;
}

std::string describeResources()
{
    DWORD handles = 0;
    GetProcessHandleCount(GetCurrentProcess(), &handles);
    return "handles " + std::to_string(handles);
}

} // namespace quelta::test
