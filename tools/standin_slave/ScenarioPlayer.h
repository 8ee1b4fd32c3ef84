// Plays one run of a scenario: takes the steps in order and watches, in whatever waits there are,
// for the daemon's stop message and for the end of the connection. Everything happens on the
// calling thread.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "messages/SlaveDaemonMessage.h"
#include "standin_slave/DaemonLink.h"
#include "standin_slave/Scenario.h"

namespace quelta {

class ScenarioPlayer
{
public:
    /** Connects to `daemonPort` when the scenario says so. The scenario must outlive the player. */
    ScenarioPlayer(const RunScenario& runScenario, uint16_t daemonPort);

    /** Plays to the end and returns the process's exit status. */
    uint32_t play();

private:
    void perform(const ScenarioStep& step);
    void connect();
    void tryAnotherConnection();
    void beat(uint32_t interval, std::optional<uint32_t> duration);
    void send(SlaveMessageType type, uint32_t version = 0, uint32_t numGpus = 0);
    void sendBytes(const ScenarioStep& step);
    void checkSent(bool sent);

    /** Waits, without `duration` for ever, but not past the moment that the run's end is
        decided. */
    void pause(std::optional<uint32_t> duration);
    void endIfDue();
    void handleMessage();
    void handleStop();
    void handleLost(const char* reason);
    void end(uint32_t status);

    const RunScenario& scenario;
    const uint16_t port;
    DaemonLink link;
    uint32_t connectedTime;             ///< When there last was a connection, or the start.
    std::optional<uint32_t> stopTime;   ///< When the stop message came that is obeyed later.
    std::optional<uint32_t> exitStatus; ///< Set once the end is decided.
};

} // namespace quelta
