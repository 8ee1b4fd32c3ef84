// What the stand-in slave does, as read from its scenario file: for each of its two runs some
// settings and a list of steps that are played one after the other.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace quelta {

struct ScenarioStep
{
    enum class Action
    {
        connect,
        disconnect,
        secondConnection,
        authenticating,
        info, ///< numbers: version, GPUs
        status,
        beat,  ///< numbers: milliseconds between two beats, milliseconds in all (without: for ever)
        wait,  ///< numbers: milliseconds
        frame, ///< bytes: the payload; numbers: how often it is repeated
        raw,   ///< bytes: as they go onto the socket; numbers: how often they are repeated
        hang,
        crash,
        exit ///< numbers: exit status
    };

    Action action = Action::hang;
    std::optional<uint32_t> firstNumber;
    std::optional<uint32_t> secondNumber;
    std::vector<uint8_t> bytes;
};

struct RunScenario
{
    enum class OnStop
    {
        exit,
        exitAfter,
        ignore
    };

    OnStop onStop = OnStop::exit;
    uint32_t stopDelay = 0;  ///< Milliseconds, for exitAfter.
    uint32_t stopStatus = 0; ///< Exit status after the stop message.
    bool exitOnLost = true;  ///< Whether it ends when the daemon closes the connection.
    uint32_t version = 4000000;
    uint32_t numGpus = 1;
    std::vector<ScenarioStep> steps;
};

struct Scenario
{
    RunScenario info; ///< Played with --daemon-info-request.
    RunScenario run;  ///< Played without.
};

} // namespace quelta
