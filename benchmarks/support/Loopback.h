// The addresses of a benchmark's masters: one port, and consecutive IP addresses from 127.0.0.1. A
// program that connects to all of them needs only the port and their number.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>

namespace quelta::bench {

constexpr uint32_t firstMasterIp = 0x7F000001;

constexpr uint32_t getMasterIp(int index)
{
    return firstMasterIp + static_cast<uint32_t>(index);
}

inline sockaddr_in makeSocketAddress(uint32_t ip, uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(ip);
    address.sin_port = htons(port);
    return address;
}

} // namespace quelta::bench
