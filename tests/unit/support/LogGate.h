// Pauses a thread at a chosen moment: the thread that logs a certain line blocks in that call until
// the gate is opened. It keeps all locks that it holds, among them the log's, so that other threads
// that log block too.
//
// One instance at a time, constructed after the LogCapture, which removes the sink.
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
    /** Blocks the next thread that logs `line`. */
    explicit LogGate(std::string line)
    {
        {
            const std::lock_guard guard(state.lock);
            state.line = std::move(line);
            state.armed = true;
            state.reached = false;
        }

        addLogSink(wait); // not under the lock above: sinks take it under the log's lock
    }

    ~LogGate() { open(); }

    LogGate(const LogGate&) = delete;
    LogGate& operator=(const LogGate&) = delete;

    /** Waits until a thread blocks in the gate; false after the time limit. */
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

    /** Static because a sink is a plain function. */
    static State& getState()
    {
        static State state;
        return state;
    }

    State& state = getState();
};

} // namespace quelta::test
