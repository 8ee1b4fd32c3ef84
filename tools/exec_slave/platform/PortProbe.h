// Checks whether a TCP port accepts connections.
#pragma once

#include <chrono>
#include <cstdint>
#include <stop_token>
#include <string>

namespace quelta::execslave {

/** Connects to the host's first address and closes the connection. Returns an empty string, or why
    no connection was made: the system's text. Gives up after `limit` and soon after a request to
    stop; neither interrupts the look-up of a host name. Any thread. */
std::string probePort(const std::string& host, uint16_t port, std::chrono::milliseconds limit,
                      const std::stop_token& stop);

} // namespace quelta::execslave
