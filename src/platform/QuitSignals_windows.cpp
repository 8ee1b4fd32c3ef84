#include "platform/QuitSignals.h"

#include <array>
#include <atomic>
#include <csignal>

#include <juce_events/juce_events.h>

namespace quelta::platform {

namespace {

constexpr std::array quitSignals{SIGABRT, SIGFPE, SIGILL, SIGINT, SIGSEGV, SIGTERM};

std::atomic<bool> requested{false};

void setHandler(void (*handler)(int))
{
    for (const auto number : quitSignals)
        std::signal(number, handler);
}

/** The runtime calls it on a thread of its own and has put the signal back to its default. */
void requestQuit(int)
{
    requested = true;
    juce::JUCEApplicationBase::quit();
}

} // namespace

void restoreDefaultInterrupt()
{
    // The framework leaves Ctrl-C alone here.
}

void installQuitHandlers()
{
    setHandler(requestQuit);
}

void resetQuitHandlers()
{
    setHandler(SIG_DFL);
}

bool quitWasRequested()
{
    return requested;
}

} // namespace quelta::platform
