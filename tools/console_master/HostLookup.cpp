#include "console_master/HostLookup.h"

#include <SystemSockets.h>

#include <juce_core/juce_core.h>

#include "console_master/HostList.h"

namespace quelta {

std::optional<uint32_t> lookUpHost(const std::string& host)
{
    const juce::DatagramSocket startsTheSocketLayer;

    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;

    if (getaddrinfo(host.c_str(), nullptr, &wanted, &found) != 0 || found == nullptr)
        return std::nullopt;

    const auto* address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
    const uint32_t ip = ntohl(address->sin_addr.s_addr);
    freeaddrinfo(found);
    return ip;
}

std::optional<uint32_t> localAddressTowards(uint32_t ip)
{
    // Connecting a datagram socket only chooses the way. It may be a broadcast address, hence true.
    juce::DatagramSocket socket(true);
    const auto handle = static_cast<SystemSocket>(socket.getRawSocketHandle());

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(9);
    address.sin_addr.s_addr = htonl(ip);

    if (connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        return std::nullopt;

    socklen_t size = sizeof(address);

    if (getsockname(handle, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return std::nullopt;

    return ntohl(address.sin_addr.s_addr);
}

bool isThisMachine(uint32_t ip)
{
    if (isLoopback(ip))
        return true;

    for (const auto& own : juce::IPAddress::getAllAddresses())
        if (parseIp(own.toString().toStdString()) == ip)
            return true;

    return false;
}

} // namespace quelta
