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

/** The system ends a process 5 s after its console was closed. */
constexpr DWORD systemsPatienceMs = 4'500;

std::atomic<int64_t> firstQuitMs{noQuitYet};
std::atomic<bool> shuttingDown{false};
std::atomic<void (*)()> callBeforeForcedEnd{nullptr};

void setHandler(void (*handler)(int))
{
    for (const auto number : quitSignals)
        std::signal(number, handler);
}

/** Records the time of the first request and gives the effect of this one. */
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

/** The runtime calls it for Ctrl-C on a thread of its own and has put the signal back to its
    default. */
void handleQuitSignal(int)
{
    noteQuitRequest();
    quitMessageLoop();
}

/** Returns whether the event is dealt with; if not, the runtime gets Ctrl-C, and then the system
    ends the process. */
BOOL handleKey(DWORD event)
{
    // A shutdown that no key has asked for is cut short by the first one.
    const bool isTooLate = shuttingDown && !quitWasRequested();
    const auto effect = isTooLate ? QuitEffect::endAtOnce : noteQuitRequest();

    if (effect == QuitEffect::endAtOnce)
        setHandler(SIG_DFL);

    if (effect != QuitEffect::quit)
        return effect == QuitEffect::none ? TRUE : FALSE;

    if (event == CTRL_C_EVENT)
        return FALSE; // the runtime raises SIGINT

    quitMessageLoop();
    return TRUE;
}

/** The system ends the process when this returns, or when its patience is over. Normally the
    process ends before, in order. */
void endWithTheConsole()
{
    setStopDeadline(getAwakeMilliseconds() + hurriedGraceMs);
    noteQuitRequest();
    quitMessageLoop();
    Sleep(systemsPatienceMs);

    if (auto* const callback = callBeforeForcedEnd.load(); callback != nullptr)
        callback();
}

/** Services see every user log off, which does not concern them. */
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
                endWithTheConsole();

            return TRUE;

        case CTRL_CLOSE_EVENT:
        case CTRL_SHUTDOWN_EVENT:
            endWithTheConsole();
            return TRUE;

        default:
            return FALSE;
    }
}

} // namespace

void restoreDefaultInterrupt()
{
    // JUCE leaves Ctrl-C alone here.
}

int installQuitHandlers(void (*beforeForcedEnd)())
{
    callBeforeForcedEnd = beforeForcedEnd;
    setHandler(handleQuitSignal);
    SetConsoleCtrlHandler(handleConsoleEvent,
                          TRUE); // behind the runtime's, so that it is asked first
    return 0;
}

void resetQuitHandlers()
{
    // The handler of console events stays: it gives a shutdown the time that a closed console
    // leaves.
    shuttingDown = true;
    setHandler(SIG_DFL);
}

bool quitWasRequested()
{
    return firstQuitMs != noQuitYet;
}

} // namespace quelta::platform
