#include "exec_slave/platform/StopSignals.h"

#include <pthread.h>

#include <csignal>
#include <thread>
#include <utility>

namespace quelta::execslave {

namespace {

constexpr int wakeSignal = SIGUSR1; ///< Ends the waiting thread.

bool isIgnored(int number)
{
    struct sigaction current = {};
    return sigaction(number, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
}

sigset_t findHandledSignals()
{
    sigset_t handled;
    sigemptyset(&handled);
    sigaddset(&handled, wakeSignal);

    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        if (number != SIGHUP || !isIgnored(number))
            sigaddset(&handled, number);

    return handled;
}

} // namespace

/** The signals are blocked in every thread, and this one waits for them. */
struct StopSignals::Handling
{
    explicit Handling(Receiver receiver)
    {
        pthread_sigmask(SIG_BLOCK, &handled, nullptr);
        thread = std::jthread([this, receive = std::move(receiver)](const std::stop_token& stop) {
            int number = 0;

            while (sigwait(&handled, &number) == 0 && !stop.stop_requested())
                if (number != wakeSignal)
                    receive(StopSignal::asked);
        });
    }

    ~Handling()
    {
        thread.request_stop();
        pthread_kill(thread.native_handle(), wakeSignal);
    }

    Handling(const Handling&) = delete;
    Handling& operator=(const Handling&) = delete;

    const sigset_t handled = findHandledSignals();
    std::jthread thread;
};

StopSignals::StopSignals(Receiver receiver)
    : handling(std::make_unique<Handling>(std::move(receiver)))
{}

StopSignals::~StopSignals() = default;

} // namespace quelta::execslave
