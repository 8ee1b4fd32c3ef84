// Parses the nodes and addresses on the command line and in files of nodes. Pure functions.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "messages/MasterAddress.h"

namespace quelta {

/** Where a node's daemon receives beacons. */
struct NodeName
{
    std::string host;  ///< Host name or dotted address.
    uint16_t port = 0; ///< The daemon's port.

    bool operator==(const NodeName&) const = default;
};

/** "render07:5130". */
std::string formatNode(const NodeName& node);

/** Parses "host:port" with a port from 1 to 65535. */
std::optional<NodeName> parseNode(std::string_view text);

/** Parses nodes separated by blanks, commas and line ends, and appends them to `nodes`. A '#'
    begins a comment that ends with its line. Returns an error message for the first invalid or
    repeated node; empty on success. */
std::string addNodes(std::string_view text, std::vector<NodeName>& nodes);

/** Parses "10.0.0.5". */
std::optional<uint32_t> parseIp(std::string_view text);

/** Parses "10.0.0.5:21000". */
std::optional<MasterAddress> parseAddress(std::string_view text);

/** Parses "127.0.0.1:8080"; port 0 is allowed and means any free port. */
std::optional<MasterAddress> parseListenAddress(std::string_view text);

/** Whether `ip` is in 127.0.0.0/8. */
bool isLoopback(uint32_t ip);

} // namespace quelta
