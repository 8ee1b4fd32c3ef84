#include "platform/Sockets.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace quelta::platform {

namespace {

constexpr int sendTimeoutMs = 200;
constexpr int vanishedPeerMs = 20'000;   ///< For data in flight.
constexpr int keepAliveIdleSeconds = 10; ///< Then a probe every 3 s, given up after 4: 22 s in all.
constexpr int keepAliveIntervalSeconds = 3;
constexpr int keepAliveProbes = 4;

template <typename Value>
void setOption(int socketHandle, int level, int name, const Value& value)
{
    // A socket without the option still serves; what it lacks is only noticed later.
    setsockopt(socketHandle, level, name, &value, sizeof(value));
}

} // namespace

void startWinsock() {}

void stopWinsock() {}

std::string socketErrorText()
{
    const int error = errno;
    return (error == 0 ? std::string("-") : std::string(std::strerror(error))) + " (" +
           std::to_string(error) + ")";
}

void prepareMasterSocket(int socketHandle)
{
    timeval sendTimeout{};
    sendTimeout.tv_usec = sendTimeoutMs * 1000;
    setOption(socketHandle, SOL_SOCKET, SO_SNDTIMEO, sendTimeout);
    setOption(socketHandle, SOL_SOCKET, SO_KEEPALIVE, 1);
    setOption(socketHandle, IPPROTO_TCP, TCP_KEEPIDLE, keepAliveIdleSeconds);
    setOption(socketHandle, IPPROTO_TCP, TCP_KEEPINTVL, keepAliveIntervalSeconds);
    setOption(socketHandle, IPPROTO_TCP, TCP_KEEPCNT, keepAliveProbes);
    setOption(socketHandle, IPPROTO_TCP, TCP_USER_TIMEOUT, vanishedPeerMs);
}

bool BeaconSocket::create()
{
    handle = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return handle != none;
}

bool BeaconSocket::bindTo(uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    return bind(static_cast<int>(handle), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

BeaconSocket::Readiness BeaconSocket::waitUntilReadable(int timeoutMs)
{
    // poll, because select cannot take a descriptor above 1023
    pollfd waited{static_cast<int>(handle), POLLIN, 0};
    const auto result = poll(&waited, 1, timeoutMs);

    if (result < 0 && errno != EINTR)
        return Readiness::failed;

    return result > 0 ? Readiness::ready : Readiness::timedOut;
}

int BeaconSocket::receive(void* buffer, size_t capacity, uint32_t& senderIp)
{
    sockaddr_in sender{};
    socklen_t senderSize = sizeof(sender);
    const auto count = recvfrom(static_cast<int>(handle), buffer, capacity, MSG_DONTWAIT,
                                reinterpret_cast<sockaddr*>(&sender), &senderSize);
    senderIp = ntohl(sender.sin_addr.s_addr);

    if (count < 0)
        return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? nothingThere : failed;

    return static_cast<int>(count);
}

void BeaconSocket::close()
{
    if (handle != none)
        ::close(static_cast<int>(handle));

    handle = none;
}

} // namespace quelta::platform
