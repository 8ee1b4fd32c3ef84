// Formats the console master's output: tables, event lines, JSON. Pure functions. They replace
// control characters in texts from a daemon, which could control the operator's terminal.
#pragma once

#include <string>
#include <vector>

#include "console_master/NodeBoard.h"

namespace quelta {

/** A text from a daemon as valid UTF-8, with control characters replaced by question marks. */
std::string readableText(const std::string& field);

/** The name of a node's state: "free", "owned", "running", ... */
const char* stateName(const Node& node);

/** All nodes as a table with a heading and one line for each node. */
std::string formatTable(const std::vector<Node>& nodes);

/** All nodes as a JSON array. */
std::string formatJson(const std::vector<Node>& nodes);

/** One event as a line of text without the line end. */
std::string formatEvent(const Node& node, NodeEvent event);

/** One event as a JSON object on one line. `time` is written unchanged. */
std::string formatJsonEvent(const Node& node, NodeEvent event, const std::string& time);

/** The event that reports the address announced to nodes, as text and as JSON. */
std::string formatListening(const MasterAddress& self);
std::string formatJsonListening(const MasterAddress& self, const std::string& time);

/** The event that reports where the page is served, as text and as JSON. */
std::string formatServing(const MasterAddress& address);
std::string formatJsonServing(const MasterAddress& address, const std::string& time);

} // namespace quelta
