// What the operator sees: tables, event lines, JSON. Pure functions. Texts that come from a daemon
// are shown without control characters, which a terminal would obey.
#pragma once

#include <string>
#include <vector>

#include "console_master/NodeBoard.h"

namespace quelta {

/** The word for a node's state: "free", "owned", "running", ... */
const char* stateName(const Node& node);

/** All nodes as a table with a head, a line each. */
std::string formatTable(const std::vector<Node>& nodes);

/** All nodes as a JSON array. */
std::string formatJson(const std::vector<Node>& nodes);

/** One event as a line of text, without a line end. */
std::string formatEvent(const Node& node, NodeEvent event);

/** The same as a JSON object on one line; `time` is written as it is. */
std::string formatJsonEvent(const Node& node, NodeEvent event, const std::string& time);

/** The address that nodes are told, as an event line in either form. */
std::string formatListening(const MasterAddress& self);
std::string formatJsonListening(const MasterAddress& self, const std::string& time);

} // namespace quelta
