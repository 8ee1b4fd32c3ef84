// Reads the figures of this process. Thread-safe.
#pragma once

#include "farm_view/ProcessFigures.h"

namespace quelta::farmview {

/** Figures that cannot be read are 0. */
ProcessFigures readProcessFigures();

} // namespace quelta::farmview
