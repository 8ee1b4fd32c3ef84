// The farm view as metrics in Prometheus' text format. Pure functions.
#pragma once

#include <string>
#include <string_view>

#include "farm_view/FarmModel.h"
#include "farm_view/ProcessFigures.h"

namespace quelta::farmview {

/** The media type of the text. */
constexpr std::string_view metricsType = "text/plain; version=0.0.4; charset=utf-8";

std::string formatMetrics(const FarmModel& model, const ProcessFigures& process, Time now);

} // namespace quelta::farmview
