// Stops a thread in the middle of its work: whoever logs a certain line waits in it until the gate
// is opened, with every lock that it holds there. It also holds the log's lock, so whoever else
// logs waits as well.
//
// One at a time. Made after the LogCapture, which removes the sink.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>

#include "LogCapture.h"

namespace quelta::test {

class LogGate
{
public:
    /** Stops the next thread that logs `line`. */
    explicit LogGate(std::string line)
    {
        {
            const std::lock_guard guard(state.lock);
            state.line = std::move(line);
            state.armed = true;
            state.reached = false;
        }

        addLogSink(wait); // takes the log's lock, under which a sink takes the one above
    }

    ~LogGate() { open(); }

    LogGate(const LogGate&) = delete;
    LogGate& operator=(const LogGate&) = delete;

    /** False if no thread comes in a long time. */
    bool waitUntilReached()
    {
        std::unique_lock guard(state.lock);
        return state.changed.wait_for(guard, LogCapture::hangLimit,
                                      [this] { return state.reached; });
    }

    void open()
    {
        const std::lock_guard guard(state.lock);
        state.armed = false;
        state.changed.notify_all();
    }

private:
    struct State
    {
        std::mutex lock;
        std::condition_variable changed;
        std::string line;
        bool armed = false;
        bool reached = false;
    };

    static void wait(const char* line)
    {
        auto& state = getState();
        std::unique_lock guard(state.lock);

        if (!state.armed || state.line != line)
            return;

        state.reached = true;
        state.changed.notify_all();
        state.changed.wait(guard, [&state] { return !state.armed; });
    }

    /** The one there is: a sink is a plain function and has nothing else to look at. */
    static State& getState()
    {
        static State state;
        return state;
    }

    State& state = getState();
};

} // namespace quelta::test
