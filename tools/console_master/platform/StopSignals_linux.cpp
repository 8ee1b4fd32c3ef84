#include "console_master/platform/StopSignals.h"

#include <chrono>
#include <csignal>
#include <ctime>

namespace quelta {

namespace {

StopRequest* receiver = nullptr;

void receive(int signal)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now); // async-signal-safe
    const auto sinceBoot = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);

    if (receiver->receive(std::chrono::duration_cast<std::chrono::milliseconds>(sinceBoot)))
        return;

    // The signal is blocked while its handler runs, so the default action follows on return.
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

} // namespace

void installStopSignals(StopRequest& request)
{
    receiver = &request;

    struct sigaction action = {};
    action.sa_handler = receive;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

} // namespace quelta
