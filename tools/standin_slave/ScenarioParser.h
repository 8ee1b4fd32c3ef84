// Parses the text of a scenario file. A pure function, safe on arbitrary bytes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "standin_slave/Scenario.h"

namespace quelta {

/** The maximum size of a scenario in bytes. */
constexpr size_t maxScenarioSize = 1024 * 1024;

/** The maximum number of bytes that one frame or raw step sends, repetitions included. */
constexpr size_t maxStepBytes = 64 * 1024 * 1024;

/** The maximum time that a scenario can specify: one hour. */
constexpr uint32_t maxScenarioMilliseconds = 3600000;

/** The steps of a well-behaved slave, for runs whose scenario has no steps. */
extern const char* const defaultInfoSteps;
extern const char* const defaultRunSteps;

/** Fills `scenario` and returns true. On an error it leaves `scenario` unchanged, sets `error` to
    "line N: reason" and returns false. */
bool parseScenario(std::string_view text, Scenario& scenario, std::string& error);

} // namespace quelta
