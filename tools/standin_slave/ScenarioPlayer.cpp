#include "standin_slave/ScenarioPlayer.h"

#include <algorithm>

#include "standin_slave/Report.h"
#include "standin_slave/platform/CurrentProcess.h"

namespace quelta {

namespace {

/** Without a connection no stop message can arrive, so the slave ends by itself after this time. It
    is far beyond the daemon's own time limits for connecting and stopping. */
constexpr uint32_t unconnectedTimeoutMs = 60000;

constexpr uint32_t pollIntervalMs = 50;
constexpr uint32_t secondConnectionTimeoutMs = 2000;
constexpr uint32_t lostStatus = 1;

uint32_t now()
{
    return juce::Time::getMillisecondCounter();
}

} // namespace

ScenarioPlayer::ScenarioPlayer(const RunScenario& runScenario, uint16_t daemonPort)
    : scenario(runScenario), port(daemonPort), connectedTime(now())
{}

uint32_t ScenarioPlayer::play()
{
    for (const auto& step : scenario.steps)
    {
        // Handles a stop message between two steps that do not wait.
        pause(0);

        if (exitStatus.has_value())
            break;

        perform(step);
    }

    if (!exitStatus.has_value())
    {
        report("end of scenario");
        end(0);
    }

    link.close();
    return *exitStatus;
}

void ScenarioPlayer::perform(const ScenarioStep& step)
{
    using Action = ScenarioStep::Action;

    switch (step.action)
    {
        case Action::connect:
            return connect();
        case Action::disconnect:
            report("disconnecting");
            return link.close();
        case Action::secondConnection:
            return tryAnotherConnection();
        case Action::authenticating:
            return send(SlaveMessageType::AUTHENTICATING);
        case Action::info:
            return send(SlaveMessageType::SLAVE_INFO, step.firstNumber.value_or(scenario.version),
                        step.secondNumber.value_or(scenario.numGpus));
        case Action::status:
            return send(SlaveMessageType::SLAVE_STATUS);
        case Action::beat:
            return beat(*step.firstNumber, step.secondNumber);
        case Action::wait:
            return pause(step.firstNumber);
        case Action::frame:
        case Action::raw:
            return sendBytes(step);
        case Action::hang:
            report("hanging");
            return pause(std::nullopt);
        case Action::crash:
            report("crashing");
            crashProcess();
        case Action::exit:
            return end(*step.firstNumber);
    }
}

void ScenarioPlayer::connect()
{
    if (!link.connect(port))
        return handleLost("could not connect");

    connectedTime = now();
    report("connected to 127.0.0.1:%u", port);
}

void ScenarioPlayer::tryAnotherConnection()
{
    DaemonLink second;

    if (!second.connect(port))
        return report("second connection was not accepted");

    report("second connection made");

    for (const auto start = now();
         now() - start < secondConnectionTimeoutMs && !exitStatus.has_value(); pause(0))
    {
        if (second.poll(pollIntervalMs) == DaemonLink::Event::lost)
            return report("second connection was closed by the daemon");
    }

    report("second connection is still open after %u ms, closing it", secondConnectionTimeoutMs);
}

void ScenarioPlayer::beat(uint32_t interval, std::optional<uint32_t> duration)
{
    const auto start = now();

    while (!exitStatus.has_value())
    {
        send(SlaveMessageType::SLAVE_STATUS);
        const auto elapsed = now() - start;

        if (duration.has_value() && elapsed + interval >= *duration)
            return pause(*duration > elapsed ? *duration - elapsed : 0);

        pause(interval);
    }
}

void ScenarioPlayer::send(SlaveMessageType type, uint32_t version, uint32_t numGpus)
{
    SlaveDaemonMessage message;
    message.type = type;
    message.slaveVersion = version;
    message.numGpus = numGpus;
    const auto bytes = message.encode();

    if (type == SlaveMessageType::SLAVE_INFO)
        report("sending SLAVE_INFO, version %u, GPUs %u", version, numGpus);
    else
        report("sending %s", SlaveDaemonMessage::getTypeName(type));

    checkSent(link.sendMessage({bytes.begin(), bytes.end()}));
}

void ScenarioPlayer::sendBytes(const ScenarioStep& step)
{
    std::vector<uint8_t> bytes;

    for (auto i = step.firstNumber.value_or(1); i > 0 && !step.bytes.empty(); --i)
        bytes.insert(bytes.end(), step.bytes.begin(), step.bytes.end());

    const auto framed = step.action == ScenarioStep::Action::frame;
    report("sending %u bytes %s", static_cast<unsigned>(bytes.size()),
           framed ? "as a message" : "unframed");
    checkSent(framed ? link.sendMessage(bytes) : link.sendRaw(bytes));
}

void ScenarioPlayer::checkSent(bool sent)
{
    if (!sent)
        handleLost(link.isConnected() ? "sending failed" : "not connected");
}

void ScenarioPlayer::pause(std::optional<uint32_t> duration)
{
    const auto start = now();
    auto elapsed = uint32_t{0};

    do
    {
        const auto left = duration.has_value() ? *duration - elapsed : pollIntervalMs;
        const auto slice = static_cast<int>(std::min(left, pollIntervalMs));

        if (!link.isConnected())
            juce::Thread::sleep(slice);
        else if (const auto event = link.poll(slice); event == DaemonLink::Event::message)
            handleMessage();
        else if (event == DaemonLink::Event::lost)
            handleLost("connection lost");

        endIfDue();
        elapsed = now() - start;
    } while (!exitStatus.has_value() && (!duration.has_value() || elapsed < *duration));
}

void ScenarioPlayer::endIfDue()
{
    if (link.isConnected())
        connectedTime = now();

    if (exitStatus.has_value())
        return;

    if (stopTime.has_value() && now() - *stopTime >= scenario.stopDelay)
        return end(0);

    if (now() - connectedTime > unconnectedTimeoutMs)
    {
        report("without a connection for %u ms", unconnectedTimeoutMs);
        end(lostStatus);
    }
}

void ScenarioPlayer::handleMessage()
{
    SlaveDaemonMessage message;
    const auto& bytes = link.getMessage();

    if (!SlaveDaemonMessage::fromData(bytes.data(), bytes.size(), message))
        return report("received an invalid message of %u bytes",
                      static_cast<unsigned>(bytes.size()));

    report("received %s", SlaveDaemonMessage::getTypeName(message.type));

    if (message.type == SlaveMessageType::STOP_SLAVE)
        handleStop();
}

void ScenarioPlayer::handleStop()
{
    switch (scenario.onStop)
    {
        case RunScenario::OnStop::exit:
            return end(scenario.stopStatus);
        case RunScenario::OnStop::exitAfter:
            report("stopping in %u ms", scenario.stopDelay);
            stopTime = now();
            return;
        case RunScenario::OnStop::ignore:
            return report("ignoring the stop message");
    }
}

void ScenarioPlayer::handleLost(const char* reason)
{
    report("%s", reason);
    link.close();

    if (scenario.exitOnLost)
        end(lostStatus);
}

void ScenarioPlayer::end(uint32_t status)
{
    report("exit status %u", status);
    exitStatus = status;
}

} // namespace quelta
