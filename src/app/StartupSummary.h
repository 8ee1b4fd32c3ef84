// What the daemon prints about itself before it starts to serve.
#pragma once

#include <cstdint>

#include "app/DaemonSettings.h"

namespace quelta {

/** Prints the settings and what the slave has reported, as plain lines. */
void printStartupSummary(const DaemonSettings& settings, uint32_t slaveVersion,
                         uint32_t numProvidedGpus);

} // namespace quelta
