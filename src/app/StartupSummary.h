// The summary that the daemon prints before it starts to serve.
#pragma once

#include <cstdint>

#include "app/DaemonSettings.h"

namespace quelta {

/** Logs the settings and what the slave has reported, without a prefix. */
void printStartupSummary(const DaemonSettings& settings, uint32_t slaveVersion,
                         uint32_t numProvidedGpus);

} // namespace quelta
