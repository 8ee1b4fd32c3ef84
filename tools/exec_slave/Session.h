// A run of the configured program for a master, from its start to its end.
//
// run() works on the calling thread. Output, checks, heartbeats and the stop command have threads
// of their own, which report to the inbox; SessionState decides.
#pragma once

#include <memory>
#include <optional>
#include <thread>

#include "exec_slave/CheckLoop.h"
#include "exec_slave/OutputPump.h"
#include "exec_slave/SlaveSetup.h"

namespace quelta::execslave {

class Session
{
public:
    /** Everything given must outlive this object. */
    Session(const SlaveSetup& slaveSetup, MonitorLink& monitorLink, SessionInbox& sessionInbox,
            OutputWriter& outputWriter);

    /** Starts the program and watches it until it has ended with all of its descendants. Returns
        the exit status. */
    int run();

private:
    ProgramEnd watch(SessionState& state);
    void obey(const SessionOrders& orders);
    void take(StopStep step);
    void beginReadyChecks();
    void beginAliveChecks();
    CheckLoop::Check makeCheck(const Command& command) const;
    void runStopCommand();
    void write(const std::vector<std::string>& messages);
    int finish(SessionState& state, const ProgramEnd& end);

    const SlaveSetup& setup;
    MonitorLink& link;
    SessionInbox& inbox;
    OutputWriter& writer;
    std::unique_ptr<ContainedProgram> program;
    std::unique_ptr<OutputPump> pump;
    std::optional<CheckLoop> readyCheck;
    std::optional<CheckLoop> tcpCheck;
    std::optional<CheckLoop> commandCheck;
    std::jthread stopCommand;
};

} // namespace quelta::execslave
