// Reads the text of a scenario file. A pure function on bytes; any bytes will do.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "standin_slave/Scenario.h"

namespace quelta {

/** A longer scenario is refused. */
constexpr size_t maxScenarioSize = 1024 * 1024;

/** Repeated bytes of one frame or raw step may not be more than this. */
constexpr size_t maxStepBytes = 64 * 1024 * 1024;

/** The longest time that a scenario can name: an hour. */
constexpr uint32_t maxScenarioMilliseconds = 3600000;

/** The steps of a well-behaved slave, played when a scenario gives none for that run. */
extern const char* const defaultInfoSteps;
extern const char* const defaultRunSteps;

/** Fills `scenario` and returns true, or leaves it alone, puts "line N: reason" into `error` and
    returns false. */
bool parseScenario(std::string_view text, Scenario& scenario, std::string& error);

} // namespace quelta
