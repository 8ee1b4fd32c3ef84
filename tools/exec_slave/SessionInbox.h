// What the session's threads have seen, and the wake-up of the session's own thread.
//
// Any thread reports; the session waits and takes a copy. `lock` guards every member.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "exec_slave/MonitorLink.h"
#include "exec_slave/SessionState.h"

namespace quelta::execslave {

class SessionInbox final : public MonitorLink::Listener
{
public:
    void daemonAskedToStop() override { requestStop(StopReason::daemonAsked); }
    void daemonLost() override { requestStop(StopReason::daemonLost); }

    /** Asks the session to stop. The first reason counts, but systemEnds replaces it. */
    void requestStop(StopReason reason);

    /** Interrupts what runs before the program does. */
    std::stop_token getStopToken() const { return stopping.get_token(); }

    void reportReady();
    void reportReadyFailure(const std::string& failure);
    void reportTcpCheck(const std::string& failure);
    void reportCommandCheck(const std::string& failure);
    void reportStopCommand(bool succeeded);
    void reportErrorLine(std::string_view line, const std::string& pattern);

    /** A line of output is being written on, which may take long if the reader of standard output
        has stopped. That is not the program's silence. */
    void beginLine();
    void endLine();

    /** The output has ended, which usually means that the program has, too. */
    void reportEndOfOutput();

    /** Waits for a report, but no longer than `limit`. */
    void wait(std::chrono::milliseconds limit);

    bool hasOutputEnded() const;

    /** Waits for the end of the output. */
    bool waitForEndOfOutput(std::chrono::milliseconds limit);

    SessionObservation look() const;

private:
    template <typename Change>
    void report(Change change);

    mutable std::mutex lock;
    std::condition_variable changed;
    SessionObservation seen;
    bool hasNews = false;
    bool lineInHand = false;
    bool outputEnded = false;
    std::stop_source stopping;
};

} // namespace quelta::execslave
