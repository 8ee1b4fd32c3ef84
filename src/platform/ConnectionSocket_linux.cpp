#include "platform/ConnectionSocket.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <atomic>

namespace quelta::platform {

namespace {

constexpr int noHandle = -1;

} // namespace

/** Holds JUCE's own descriptor: a duplicate would cost every master a second one. If the reader
    has closed the descriptor and another socket reuses it, looking at that socket is harmless: the
    connection has ended, and the next tick replaces it. */
struct ConnectionSocket::View
{
    std::atomic<int> handle{noHandle};
};

ConnectionSocket::ConnectionSocket() : view(std::make_unique<View>()) {}

ConnectionSocket::~ConnectionSocket() = default;

void ConnectionSocket::attach(SocketHandle socketHandle)
{
    view->handle = static_cast<int>(socketHandle);
}

void ConnectionSocket::detach()
{
    view->handle = noHandle;
}

ConnectionSocket::Input ConnectionSocket::look() const
{
    const int handle = view->handle;
    pollfd looked{handle, POLLIN, 0}; // poll ignores negative descriptors

    if (poll(&looked, 1, 0) <= 0)
        return {};

    int unread = 0;
    tcp_info info{};
    socklen_t size = sizeof(info);
    ioctl(handle, FIONREAD, &unread);
    getsockopt(handle, IPPROTO_TCP, TCP_INFO, &info, &size);
    return {true, info.tcpi_bytes_received - static_cast<uint64_t>(unread)};
}

bool ConnectionSocket::shutDown()
{
    return false; // JUCE shuts the socket down and waits for its reader before it closes it
}

} // namespace quelta::platform
