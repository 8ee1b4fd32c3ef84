// What only the system knows about hosts: their addresses and the way to them. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quelta {

/** The IPv4 address of a host given by name or in dotted form; nothing if nobody knows it. */
std::optional<uint32_t> lookUpHost(const std::string& host);

/** The address that this machine has on the way to `ip`; nothing without a way. Sends nothing. */
std::optional<uint32_t> localAddressTowards(uint32_t ip);

} // namespace quelta
