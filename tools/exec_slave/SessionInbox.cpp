#include "exec_slave/SessionInbox.h"

#include "exec_slave/Duration.h"

namespace quelta::execslave {

template <typename Change>
void SessionInbox::report(Change change)
{
    const std::lock_guard guard(lock);
    change();
    hasNews = true;
    changed.notify_all();
}

void SessionInbox::requestStop(StopReason reason)
{
    report([&] {
        if (!seen.stop || reason == StopReason::systemEnds)
            seen.stop = reason;
    });
    stopping.request_stop();
}

void SessionInbox::reportReady()
{
    report([&] { seen.readyConditionMet = true; });
}

void SessionInbox::reportReadyFailure(const std::string& failure)
{
    report([&] { seen.readyFailure = failure; });
}

void SessionInbox::reportTcpCheck(const std::string& failure)
{
    report([&] { seen.tcpFailure = failure; });
}

void SessionInbox::reportCommandCheck(const std::string& failure)
{
    report([&] { seen.commandFailure = failure; });
}

void SessionInbox::reportStopCommand(bool succeeded)
{
    report([&] { seen.stopCommandFailed = !succeeded; });
}

void SessionInbox::reportErrorLine(std::string_view line, const std::string& pattern)
{
    report([&] {
        if (seen.errorPattern.empty())
        {
            seen.errorLine = line;
            seen.errorPattern = pattern;
        }
    });
}

void SessionInbox::beginLine()
{
    const std::lock_guard guard(lock);
    lineInHand = true;
}

void SessionInbox::endLine()
{
    const std::lock_guard guard(lock);
    lineInHand = false;
    seen.lastLine = getAwakeTime();
}

void SessionInbox::reportEndOfOutput()
{
    report([&] { outputEnded = true; });
}

void SessionInbox::wait(std::chrono::milliseconds limit)
{
    std::unique_lock guard(lock);
    changed.wait_for(guard, limit, [this] { return hasNews; });
    hasNews = false;
}

bool SessionInbox::hasOutputEnded() const
{
    const std::lock_guard guard(lock);
    return outputEnded;
}

bool SessionInbox::waitForEndOfOutput(std::chrono::milliseconds limit)
{
    std::unique_lock guard(lock);
    return changed.wait_for(guard, limit, [this] { return outputEnded; });
}

SessionObservation SessionInbox::look() const
{
    const std::lock_guard guard(lock);
    auto copy = seen;
    copy.now = getAwakeTime();

    if (lineInHand)
        copy.lastLine = copy.now;

    return copy;
}

} // namespace quelta::execslave
