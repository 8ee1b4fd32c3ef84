#include "platform/QuitSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <juce_events/juce_events.h>

#include "log/Log.h"

namespace quelta::platform {

namespace {

constexpr std::array quitSignals{SIGABRT, SIGFPE, SIGILL, SIGINT, SIGSEGV, SIGTERM};

std::atomic<bool> requested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

/** The handler writes a byte into it, the message loop wakes up at its other end. Made once and never closed:
    a handler that another thread is still running when the handlers are reset would write to a closed
    descriptor, or to a stranger that has got its number. */
std::array<int, 2> wakePipe{-1, -1};

void setHandler(void (*handler)(int), int flags)
{
    for (const auto number : quitSignals)
    {
        struct sigaction action = {};
        action.sa_handler = handler;
        action.sa_flags = flags;
        sigaction(number, &action, nullptr);
    }
}

/** Quitting the message loop takes locks and memory, which a handler must not. */
void requestQuit(int)
{
    const int savedErrno = errno;
    requested = true;
    [[maybe_unused]] const auto written = write(wakePipe[1], "", 1);
    errno = savedErrno;
}

} // namespace

void restoreDefaultInterrupt()
{
    std::signal(SIGINT, SIG_DFL);
}

void installQuitHandlers()
{
    if (wakePipe[0] < 0 && pipe2(wakePipe.data(), O_CLOEXEC | O_NONBLOCK) != 0)
    {
        // Without a way to the message loop the default handling is the better one.
        QUELTA_LOG_DAEMON("signals end the daemon without a shutdown: %s", std::strerror(errno));
        return;
    }

    juce::LinuxEventLoop::registerFdCallback(wakePipe[0], [](int pipe) {
        char byte = 0;

        if (read(pipe, &byte, 1) == 1)
            juce::JUCEApplicationBase::quit();
    });

    setHandler(requestQuit, static_cast<int>(SA_RESETHAND | SA_RESTART));
}

void resetQuitHandlers()
{
    setHandler(SIG_DFL, 0);

    if (wakePipe[0] >= 0)
        juce::LinuxEventLoop::unregisterFdCallback(wakePipe[0]);
}

bool quitWasRequested()
{
    return requested;
}

} // namespace quelta::platform
