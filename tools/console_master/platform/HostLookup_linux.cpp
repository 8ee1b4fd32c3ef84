#include "console_master/platform/HostLookup.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <juce_core/juce_core.h>

namespace quelta {

std::optional<uint32_t> lookUpHost(const std::string& host)
{
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
    // Connecting a datagram socket only selects a route. `true` permits broadcast addresses.
    const juce::DatagramSocket socket(true);
    const auto handle = socket.getRawSocketHandle();

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

} // namespace quelta
