#include "exec_slave/Session.h"

#include <algorithm>

#include "exec_slave/Check.h"
#include "exec_slave/CommandRun.h"
#include "exec_slave/Duration.h"
#include "exec_slave/ExitStatus.h"

namespace quelta::execslave {

namespace {

using std::chrono::milliseconds;

/** How often the session looks whether the program has ended. The end of the output usually tells
    earlier; a descendant may keep that open. */
constexpr milliseconds endPoll{500};

/** After the end of the output, the end of the program is usually reported within a millisecond. */
constexpr milliseconds endReportLimit{50};

constexpr milliseconds readyCheckPeriod{250};
constexpr milliseconds readyCheckLimit{5000};

/** The last output of a program that has ended. More time only helps if the reader of standard
    output has stopped. */
constexpr milliseconds drainLimit{2000};

CheckLoop::Check makePortCheck(const std::string& target)
{
    return [target](milliseconds limit, const std::stop_token& stop) {
        return checkPort(target, limit, stop);
    };
}

} // namespace

Session::Session(const SlaveSetup& slaveSetup, MonitorLink& monitorLink, SessionInbox& sessionInbox,
                 OutputWriter& outputWriter)
    : setup(slaveSetup), link(monitorLink), inbox(sessionInbox), writer(outputWriter)
{}

int Session::run()
{
    const auto& configuration = setup.configuration;
    std::string error;
    program = ContainedProgram::start(makeStart(configuration, configuration.command), error);

    if (program == nullptr)
    {
        writer.writeMessage(error);
        return exitNotStarted;
    }

    SessionState state(configuration, getAwakeTime());
    writer.writeMessage("started " + configuration.command.front() + " as process " +
                        std::to_string(program->getId()));
    pump = std::make_unique<OutputPump>(configuration, *program, writer, inbox);
    beginReadyChecks();
    return finish(state, watch(state));
}

ProgramEnd Session::watch(SessionState& state)
{
    for (;;)
    {
        const auto limit = inbox.hasOutputEnded() ? endReportLimit : milliseconds::zero();

        if (auto end = program->waitForEnd(limit))
            return *std::move(end);

        const auto orders = state.advance(inbox.look());
        obey(orders);
        inbox.wait(std::min(orders.wait.value_or(endPoll), endPoll));
    }
}

void Session::obey(const SessionOrders& orders)
{
    write(orders.messages);
    link.setAlive(orders.alive);

    if (orders.announce)
    {
        link.announce(setup.version, setup.numGpus);
        readyCheck.reset();
        beginAliveChecks();
    }

    take(orders.step);
}

void Session::take(StopStep step)
{
    switch (step)
    {
        case StopStep::none:
            break;
        case StopStep::runCommand:
            runStopCommand();
            break;
        case StopStep::signal:
            program->requestEnd(setup.configuration.stop.signal);
            break;
        case StopStep::kill:
            program->kill();
            break;
    }
}

void Session::beginReadyChecks()
{
    const auto& condition = setup.configuration.ready;
    const CheckLoop::Rhythm rhythm{milliseconds::zero(), readyCheckPeriod, readyCheckLimit};
    const auto report = [this](const std::string& failure) {
        failure.empty() ? inbox.reportReady() : inbox.reportReadyFailure(failure);
    };

    if (!condition.tcp.empty())
        readyCheck.emplace(rhythm, makePortCheck(condition.tcp), report);

    if (!condition.command.empty())
        readyCheck.emplace(rhythm, makeCheck(condition.command), report);
}

void Session::beginAliveChecks()
{
    const auto& condition = setup.configuration.alive;
    const CheckLoop::Rhythm rhythm{condition.period, condition.period, condition.period};

    if (!condition.tcp.empty())
        tcpCheck.emplace(rhythm, makePortCheck(condition.tcp),
                         [this](const std::string& failure) { inbox.reportTcpCheck(failure); });

    if (!condition.command.empty())
        commandCheck.emplace(
            rhythm, makeCheck(condition.command),
            [this](const std::string& failure) { inbox.reportCommandCheck(failure); });
}

CheckLoop::Check Session::makeCheck(const Command& command) const
{
    return [start = makeStart(setup.configuration, command)](milliseconds limit,
                                                             const std::stop_token& stop) {
        return checkCommand(start, limit, stop);
    };
}

/** The command may run until the program has ended or been killed; then it is interrupted. */
void Session::runStopCommand()
{
    const auto& configuration = setup.configuration;

    stopCommand =
        std::jthread([this, grace = configuration.stop.grace,
                      check = makeCheck(configuration.stop.command)](const std::stop_token& stop) {
            const auto failure = check(grace, stop);

            if (!failure.empty() && !stop.stop_requested())
                writer.writeMessage(failure);

            inbox.reportStopCommand(failure.empty());
        });
}

void Session::write(const std::vector<std::string>& messages)
{
    for (const auto& message : messages)
        writer.writeMessage(message);
}

int Session::finish(SessionState& state, const ProgramEnd& end)
{
    readyCheck.reset();
    tcpCheck.reset();
    commandCheck.reset();
    stopCommand = {};

    // Descendants may still run and hold the output open.
    program->kill();

    if (!inbox.waitForEndOfOutput(drainLimit))
        writer.writeMessage("the last of the program's output is lost");

    const auto result = state.conclude(inbox.look(), end.status, end.text);
    write(result.messages);
    writer.end(); // the pump may be waiting for a reader of standard output that has stopped
    return result.status;
}

} // namespace quelta::execslave
