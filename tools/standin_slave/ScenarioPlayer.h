// Plays one run of a scenario: performs the steps in order and, during every wait and between two
// steps, handles the daemon's stop message and the loss of the connection. Everything runs on the
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
    /** `daemonPort` is where the scenario's `connect` steps connect to. The scenario must outlive
        the player. */
    ScenarioPlayer(const RunScenario& runScenario, uint16_t daemonPort);

    /** Plays the run and returns the process's exit status. */
    uint32_t play();

private:
    void perform(const ScenarioStep& step);
    void connect();
    void tryAnotherConnection();
    void beat(uint32_t interval, std::optional<uint32_t> duration);
    void send(SlaveMessageType type, uint32_t version = 0, uint32_t numGpus = 0);
    void sendBytes(const ScenarioStep& step);
    void checkSent(bool sent);

    /** Waits for `duration` milliseconds, or for ever without one. Returns early once `exitStatus`
        is set. */
    void pause(std::optional<uint32_t> duration);
    void endIfDue();
    void handleMessage();
    void handleStop();
    void handleLost(const char* reason);
    void end(uint32_t status);

    const RunScenario& scenario;
    const uint16_t port;
    DaemonLink link;
    uint32_t connectedTime;             ///< When the link was last connected; initially the start.
    std::optional<uint32_t> stopTime;   ///< When the stop message arrived, for OnStop::exitAfter.
    std::optional<uint32_t> exitStatus; ///< Set when the run is to end.
};

} // namespace quelta
