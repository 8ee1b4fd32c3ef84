// Turns the signals that ask this process to end into calls of a function.
#pragma once

#include <functional>
#include <memory>

namespace quelta::execslave {

enum class StopSignal
{
    asked,     ///< Ctrl-C, SIGTERM and the like.
    systemEnds ///< Windows is about to end this process: its console or session is closed.
};

/** Handles SIGINT, SIGTERM, and SIGHUP unless it is ignored; on Windows Ctrl-C, Ctrl-Break and the
    end of the console or the session. At most one object exists at a time. */
class StopSignals
{
public:
    using Receiver = std::function<void(StopSignal)>;

    /** Called before other threads exist, because they inherit the set of blocked signals.
        `receiver` is called on another thread. */
    explicit StopSignals(Receiver receiver);

    /** Further signals are ignored: the process is about to end. */
    ~StopSignals();

    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

private:
    struct Handling;
    std::unique_ptr<Handling> handling;
};

} // namespace quelta::execslave
