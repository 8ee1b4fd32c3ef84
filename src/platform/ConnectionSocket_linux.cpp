#include "platform/ConnectionSocket.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <atomic>

namespace quelta::platform {

namespace {

constexpr int none = -1;

} // namespace

/** JUCE's own number, not a duplicate, which would cost every master a second descriptor. Should
    the reader have closed it and another socket have got it, a look at that one does no harm: the
    connection is over and its next tick replaces it. */
struct ConnectionSocket::View
{
    std::atomic<int> handle{none};
};

ConnectionSocket::ConnectionSocket() : view(std::make_unique<View>()) {}

ConnectionSocket::~ConnectionSocket() = default;

void ConnectionSocket::attach(SocketHandle socketHandle)
{
    view->handle = static_cast<int>(socketHandle);
}

void ConnectionSocket::detach()
{
    view->handle = none;
}

ConnectionSocket::Input ConnectionSocket::look() const
{
    const int handle = view->handle;
    pollfd looked{handle, POLLIN, 0}; // poll passes over a negative number

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
    return false; // JUCE shuts a socket down, waits for its reader and only then closes it
}

} // namespace quelta::platform
