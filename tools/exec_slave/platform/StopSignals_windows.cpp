#include "exec_slave/platform/StopSignals.h"

#include <windows.h>

#include <mutex>
#include <utility>

namespace quelta::execslave {

namespace {

/** Longer than Windows waits before it ends a process whose console or session is closed. It ends
    the process at once when the handler returns. */
constexpr DWORD untilTheEndMs = 10'000;

std::mutex receiverLock; ///< Guards `currentReceiver`.
StopSignals::Receiver currentReceiver;

void pass(StopSignal signal)
{
    const std::lock_guard guard(receiverLock);

    if (currentReceiver)
        currentReceiver(signal);
}

/** Runs on a thread that Windows starts. */
BOOL WINAPI handleEvent(DWORD event)
{
    if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT)
    {
        pass(StopSignal::asked);
        return TRUE;
    }

    pass(StopSignal::systemEnds);
    Sleep(untilTheEndMs);
    return TRUE;
}

void setReceiver(StopSignals::Receiver receiver)
{
    const std::lock_guard guard(receiverLock);
    currentReceiver = std::move(receiver);
}

} // namespace

struct StopSignals::Handling
{};

StopSignals::StopSignals(Receiver receiver)
{
    setReceiver(std::move(receiver));
    SetConsoleCtrlHandler(handleEvent, TRUE);
}

/** The handler stays: while it waits, Windows lets this process finish. */
StopSignals::~StopSignals()
{
    setReceiver(nullptr);
}

} // namespace quelta::execslave
