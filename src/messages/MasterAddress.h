// The address that identifies a master: the one that it writes into its messages, not the one that
// a socket reports.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace quelta {

struct MasterAddress
{
    /** IPv4 address in host order: the most significant byte is the first octet. */
    uint32_t ip = 0;

    uint16_t port = 0; ///< TCP port in host order.

    /** Ordered by ip, then by port. */
    auto operator<=>(const MasterAddress&) const = default;
};

/** Formats 0x0A000005 as "10.0.0.5". */
std::string formatIp(uint32_t ip);

/** Formats an address as "10.0.0.5:21000", as in every log line that names a master. */
std::string formatAddress(const MasterAddress& address);

} // namespace quelta
