// The nodes and addresses that an operator names on the command line or in a file. Pure functions
// on text.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "messages/MasterAddress.h"

namespace quelta {

/** Where a node's daemon hears beacons. */
struct NodeName
{
    std::string host;  ///< Name or dotted address.
    uint16_t port = 0; ///< The daemon's port.

    bool operator==(const NodeName&) const = default;
};

/** "render07:5130". */
std::string formatNode(const NodeName& node);

/** Reads "host:port", the port from 1 to 65535. */
std::optional<NodeName> parseNode(std::string_view text);

/** Reads nodes parted by blanks, commas and line ends, from '#' to the end of its line a comment,
    and adds them to `nodes`. Gives the text of what is wrong with the first bad one, empty if
    nothing is. */
std::string addNodes(std::string_view text, std::vector<NodeName>& nodes);

/** Reads "10.0.0.5". */
std::optional<uint32_t> parseIp(std::string_view text);

/** Reads "10.0.0.5:21000". */
std::optional<MasterAddress> parseAddress(std::string_view text);

/** Whether `ip` is in 127.0.0.0/8. */
bool isLoopback(uint32_t ip);

} // namespace quelta
