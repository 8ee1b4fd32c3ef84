// The farm view's JSON and server-sent events. Pure functions. docs/openapi.yaml describes both.
#pragma once

#include <string>

#include "farm_view/FarmModel.h"

namespace quelta::farmview {

/** A history of all nodes has at most about this many changes: the latest of each node. The history
    of a single node is always whole. */
constexpr size_t maxChangesOfAllNodes = 20000;

/** {"time", "nodes"}. */
std::string formatNodes(const FarmModel& model, Time now);

/** One node, as in formatNodes(). */
std::string formatNode(const NodeRecord& record);

/** One node with its "history". */
std::string formatNodeWithHistory(const NodeRecord& record);

/** {"time", "since", "nodes"} with the changes of each node. */
std::string formatHistory(const FarmModel& model, Time now);

/** {"error"}. */
std::string formatError(const std::string& text);

/** {"node"}. */
std::string formatRemoved(const std::string& node);

/** {"time"}. */
std::string formatClock(Time now);

/** A server-sent event; `data` is one line. */
std::string formatServerSentEvent(const std::string& name, const std::string& data);

} // namespace quelta::farmview
