// What the stand-in slave does, as read from its scenario file: for each of its two runs, settings
// and a list of steps that are played in order.
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
        beat,  ///< numbers: interval in milliseconds, duration in milliseconds (default: for ever)
        wait,  ///< numbers: milliseconds
        frame, ///< bytes: the payload; numbers: repetitions of it
        raw,   ///< bytes: sent without a frame; numbers: repetitions of them
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
    bool exitOnLost = true;  ///< Exit when the connection is lost or cannot be made.
    uint32_t version = 4000000;
    uint32_t numGpus = 1;
    std::vector<ScenarioStep> steps;
};

struct Scenario
{
    RunScenario info; ///< Played if the command line has --daemon-info-request.
    RunScenario run;  ///< Played otherwise.
};

} // namespace quelta
