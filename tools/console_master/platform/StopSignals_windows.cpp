#include "console_master/platform/StopSignals.h"

#include <windows.h>

#include <chrono>

namespace quelta {

namespace {

StopRequest* receiver = nullptr;

/** Runs on a thread that Windows starts. Events that it does not handle end the process. */
BOOL WINAPI receive(DWORD event)
{
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        return FALSE;

    return receiver->receive(std::chrono::milliseconds(GetTickCount64())) ? TRUE : FALSE;
}

} // namespace

void installStopSignals(StopRequest& request)
{
    receiver = &request;
    SetConsoleCtrlHandler(receive, TRUE);
}

} // namespace quelta
