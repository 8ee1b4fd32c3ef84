#include "messages/MasterAddress.h"

#include <array>
#include <cstdio>

namespace quelta {

std::string formatIp(uint32_t ip)
{
    std::array<char, sizeof("255.255.255.255")> text{};
    std::snprintf(text.data(), text.size(), "%d.%d.%d.%d", static_cast<int>(ip >> 24),
                  static_cast<int>((ip >> 16) & 0xFF), static_cast<int>((ip >> 8) & 0xFF),
                  static_cast<int>(ip & 0xFF));
    return text.data();
}

std::string formatAddress(const MasterAddress& address)
{
    return formatIp(address.ip) + ":" + std::to_string(address.port);
}

} // namespace quelta
