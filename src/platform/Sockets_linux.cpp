#include "platform/Sockets.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace quelta::platform {

namespace {

constexpr int sendTimeoutMs = 200;
constexpr int probeTimeoutMs = 100;
constexpr int unacknowledgedDataTimeoutMs = 20'000;

// Detects an idle peer that has vanished after 10 + 4 * 3 = 22 s.
constexpr int keepAliveIdleSeconds = 10;
constexpr int keepAliveIntervalSeconds = 3;
constexpr int keepAliveProbes = 4;

template <typename Value>
void setOption(SocketHandle socketHandle, int level, int name, const Value& value)
{
    // Best effort: without the option the connection works, but failures are detected later.
    setsockopt(static_cast<int>(socketHandle), level, name, &value, sizeof(value));
}

sockaddr_in makeAddress(uint32_t ip, uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(ip);
    return address;
}

/** Returns the error number with which a connection to this address fails, or 0 if it has not
    failed before the time-out. */
int probeConnection(uint32_t ip, uint16_t port)
{
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);

    if (probe < 0)
        return errno;

    const auto address = makeAddress(ip, port);
    int error = 0;

    if (connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        error = errno;

    if (error == EINPROGRESS)
    {
        pollfd waited{probe, POLLOUT, 0};
        socklen_t size = sizeof(error);
        error = 0;

        if (poll(&waited, 1, probeTimeoutMs) > 0)
            getsockopt(probe, SOL_SOCKET, SO_ERROR, &error, &size);
    }

    close(probe);
    return error;
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

std::string connectErrorText(uint32_t ip, uint16_t port, ConnectFailure failure)
{
    errno = failure == ConnectFailure::timedOut ? ETIMEDOUT : probeConnection(ip, port);
    return socketErrorText();
}

void prepareMasterSocket(SocketHandle socketHandle)
{
    timeval sendTimeout{};
    sendTimeout.tv_usec = sendTimeoutMs * 1000;
    setOption(socketHandle, SOL_SOCKET, SO_SNDTIMEO, sendTimeout);
    setOption(socketHandle, SOL_SOCKET, SO_KEEPALIVE, 1);
    setOption(socketHandle, IPPROTO_TCP, TCP_KEEPIDLE, keepAliveIdleSeconds);
    setOption(socketHandle, IPPROTO_TCP, TCP_KEEPINTVL, keepAliveIntervalSeconds);
    setOption(socketHandle, IPPROTO_TCP, TCP_KEEPCNT, keepAliveProbes);
    setOption(socketHandle, IPPROTO_TCP, TCP_USER_TIMEOUT, unacknowledgedDataTimeoutMs);
}

bool listenerWouldSharePort(uint16_t)
{
    // On Linux the bind to all addresses fails if the port is taken on any address.
    return false;
}

bool BeaconSocket::create()
{
    handle = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return handle != noHandle;
}

bool BeaconSocket::bindTo(uint16_t port)
{
    const auto address = makeAddress(INADDR_ANY, port);
    return bind(static_cast<int>(handle), reinterpret_cast<const sockaddr*>(&address),
                sizeof(address)) == 0;
}

BeaconSocket::Readiness BeaconSocket::waitUntilReadable(int timeoutMs)
{
    // Not select, which is limited to descriptors below 1024.
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
    if (handle != noHandle)
        ::close(static_cast<int>(handle));

    handle = noHandle;
}

} // namespace quelta::platform
