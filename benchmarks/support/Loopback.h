// Where the masters of a benchmark live: one port, and addresses counted up from 127.0.0.1, so that
// a program that is to connect to all of them needs no more than the port and their number.
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
