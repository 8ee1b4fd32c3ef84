// The address by which a master is known: the one that it writes into its messages, never the one
// that a socket reports.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace quelta {

struct MasterAddress
{
    uint32_t ip =
        0; ///< IPv4 address in host order; the most significant byte is the first dotted octet.
    uint16_t port = 0; ///< TCP port in host order.

    /** Ordered by ip, then by port. */
    auto operator<=>(const MasterAddress&) const = default;
};

/** "10.0.0.5" for 0x0A000005. */
std::string formatIp(uint32_t ip);

/** "10.0.0.5:21000": the form by which every log line names a master. */
std::string formatAddress(const MasterAddress& address);

} // namespace quelta
