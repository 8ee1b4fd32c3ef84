// Name resolution and routing. Thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quelta {

/** The IPv4 address of a host given by name or in dotted form; empty if unknown. */
std::optional<uint32_t> lookUpHost(const std::string& host);

/** This machine's address on the route to `ip`; empty without a route. Sends no packet. */
std::optional<uint32_t> localAddressTowards(uint32_t ip);

} // namespace quelta
