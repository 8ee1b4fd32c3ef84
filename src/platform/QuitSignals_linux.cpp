#include "platform/QuitSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>

#include <juce_events/juce_events.h>

#include "platform/AwakeClock.h"
#include "util/QuitRepetition.h"

namespace quelta::platform {

namespace {

struct QuitSignal
{
    int number = 0;
    bool isCrash = false;
};

constexpr std::array<QuitSignal, 7> quitSignals{{{SIGABRT, true},
                                                 {SIGFPE, true},
                                                 {SIGILL, true},
                                                 {SIGINT, false},
                                                 {SIGSEGV, true},
                                                 {SIGTERM, false},
                                                 {SIGHUP, false}}};

bool installed = false;

std::atomic<int64_t> firstQuitMs{noQuitYet};
static_assert(std::atomic<int64_t>::is_always_lock_free);

/** Handlers write a byte to wake the message loop. Open until the process ends, because a handler
    may be running on another thread at any time. */
std::array<int, 2> wakePipe{-1, -1};

bool isIgnored(int number)
{
    struct sigaction current = {};
    return sigaction(number, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
}

void setHandler(int number, void (*handler)(int), int flags)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigaction(number, &action, nullptr);
}

/** Records the time of the first request and returns the effect of this one. Async-signal-safe. */
QuitEffect noteQuitSignal()
{
    const auto now = getAwakeMilliseconds();
    auto first = noQuitYet;
    firstQuitMs.compare_exchange_strong(first, now);
    return judgeQuitSignal(first, now);
}

/** Async-signal-safe, unlike JUCE's quit(), which locks and allocates. */
void wakeMessageLoop()
{
    [[maybe_unused]] const auto written = write(wakePipe[1], "", 1);
}

void handleQuitSignal(int number)
{
    const int savedErrno = errno;
    const auto effect = noteQuitSignal();

    if (effect == QuitEffect::quit)
        wakeMessageLoop();

    if (effect == QuitEffect::endAtOnce)
    {
        setHandler(number, SIG_DFL, 0);
        raise(number); // takes effect when this handler returns
    }

    errno = savedErrno;
}

/** SA_RESETHAND has restored the default, so a faulting instruction ends the process when it runs
    again. */
void handleCrashSignal(int)
{
    const int savedErrno = errno;
    noteQuitSignal();
    wakeMessageLoop();
    errno = savedErrno;
}

bool openWakePipe()
{
    if (wakePipe[0] >= 0)
        return true;

    return pipe2(wakePipe.data(), O_CLOEXEC | O_NONBLOCK) == 0;
}

} // namespace

void restoreDefaultInterrupt()
{
    std::signal(SIGINT, SIG_DFL);
}

int installQuitHandlers(void (*)())
{
    if (!openWakePipe())
        return errno; // a handler that cannot wake the message loop is worse than the default

    juce::LinuxEventLoop::registerFdCallback(wakePipe[0], [](int pipe) {
        char byte = 0;

        if (read(pipe, &byte, 1) == 1)
            juce::JUCEApplicationBase::quit();
    });

    for (const auto& [number, isCrash] : quitSignals)
    {
        if (isCrash)
            setHandler(number, handleCrashSignal, static_cast<int>(SA_RESETHAND | SA_RESTART));
        else if (number != SIGHUP || !isIgnored(number))
            setHandler(number, handleQuitSignal, SA_RESTART);
    }

    installed = true;
    return 0;
}

void resetQuitHandlers()
{
    if (!installed)
        return;

    for (const auto& [number, isCrash] : quitSignals)
        if ((isCrash || !quitWasRequested()) && !isIgnored(number))
            setHandler(number, SIG_DFL, 0);

    juce::LinuxEventLoop::unregisterFdCallback(wakePipe[0]);
    installed = false;
}

bool quitWasRequested()
{
    return firstQuitMs != noQuitYet;
}

} // namespace quelta::platform
