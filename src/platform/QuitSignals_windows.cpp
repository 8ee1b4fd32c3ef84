#include "platform/QuitSignals.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <csignal>

#include <juce_events/juce_events.h>

#include "platform/AwakeClock.h"
#include "util/QuitRepetition.h"
#include "util/StopDeadline.h"

namespace quelta::platform {

namespace {

constexpr std::array quitSignals{SIGABRT, SIGFPE, SIGILL, SIGINT, SIGSEGV, SIGTERM};

/** How long the handler of a closed console waits. Windows ends the process 5 s after the
    event. */
constexpr DWORD closedConsoleWaitMs = 4'500;

std::atomic<int64_t> firstQuitMs{noQuitYet};
std::atomic<bool> shuttingDown{false};
std::atomic<void (*)()> callBeforeForcedEnd{nullptr};

void setHandler(void (*handler)(int))
{
    for (const auto number : quitSignals)
        std::signal(number, handler);
}

/** Records the time of the first request and returns the effect of this one. */
QuitEffect noteQuitRequest()
{
    const auto now = getAwakeMilliseconds();
    auto first = noQuitYet;
    firstQuitMs.compare_exchange_strong(first, now);
    return judgeQuitSignal(first, now);
}

void quitMessageLoop()
{
    if (!shuttingDown)
        juce::JUCEApplicationBase::quit();
}

/** The C runtime restores the signal's default before it calls this, for Ctrl-C on a new
    thread. */
void handleQuitSignal(int)
{
    noteQuitRequest();
    quitMessageLoop();
}

/** Returns TRUE if the event has been handled. Otherwise the C runtime handles Ctrl-C, or Windows
    ends the process. */
BOOL handleKey(DWORD event)
{
    // If something else started the shutdown, the first key already aborts it.
    const bool abortsShutdown = shuttingDown && !quitWasRequested();
    const auto effect = abortsShutdown ? QuitEffect::endAtOnce : noteQuitRequest();

    if (effect == QuitEffect::endAtOnce)
        setHandler(SIG_DFL);

    if (effect != QuitEffect::quit)
        return effect == QuitEffect::none ? TRUE : FALSE;

    if (event == CTRL_C_EVENT)
        return FALSE; // the runtime raises SIGINT

    quitMessageLoop();
    return TRUE;
}

/** Windows ends the process when this returns, or 5 s after the event. Normally the shutdown
    completes earlier and ends the process. */
void handleEndOfConsole()
{
    setStopDeadline(getAwakeMilliseconds() + hurriedGraceMs);
    noteQuitRequest();
    quitMessageLoop();
    Sleep(closedConsoleWaitMs);

    if (auto* const callback = callBeforeForcedEnd.load(); callback != nullptr)
        callback();
}

/** Services get log-off events of all users and must ignore them. */
bool isInServiceSession()
{
    DWORD session = 0;
    return ProcessIdToSessionId(GetCurrentProcessId(), &session) != FALSE && session == 0;
}

BOOL WINAPI handleConsoleEvent(DWORD event)
{
    switch (event)
    {
        case CTRL_C_EVENT:
        case CTRL_BREAK_EVENT:
            return handleKey(event);

        case CTRL_LOGOFF_EVENT:
            if (!isInServiceSession())
                handleEndOfConsole();

            return TRUE;

        case CTRL_CLOSE_EVENT:
        case CTRL_SHUTDOWN_EVENT:
            handleEndOfConsole();
            return TRUE;

        default:
            return FALSE;
    }
}

} // namespace

void restoreDefaultInterrupt()
{
    // JUCE does not handle Ctrl-C on Windows.
}

int installQuitHandlers(void (*beforeForcedEnd)())
{
    callBeforeForcedEnd = beforeForcedEnd;
    setHandler(handleQuitSignal);

    // Registered after the C runtime's handler, and therefore called before it.
    SetConsoleCtrlHandler(handleConsoleEvent, TRUE);
    return 0;
}

void resetQuitHandlers()
{
    // The console handler stays: while it waits, Windows lets the shutdown continue.
    shuttingDown = true;
    setHandler(SIG_DFL);
}

bool quitWasRequested()
{
    return firstQuitMs != noQuitYet;
}

} // namespace quelta::platform
