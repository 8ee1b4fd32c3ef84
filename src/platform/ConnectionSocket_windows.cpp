#include "platform/ConnectionSocket.h"

#include <winsock2.h>

#include <mutex>

namespace quelta::platform {

/** Holds a duplicate: JUCE may close its own handle while the reader waits on it, and Windows
    reuses the number at once. */
struct ConnectionSocket::View
{
    std::mutex lock; ///< Guards `socket`.
    SOCKET socket = INVALID_SOCKET;
};

ConnectionSocket::ConnectionSocket() : view(std::make_unique<View>()) {}

ConnectionSocket::~ConnectionSocket()
{
    detach();
}

void ConnectionSocket::attach(SocketHandle socketHandle)
{
    detach();
    const std::scoped_lock sl(view->lock);
    WSAPROTOCOL_INFOW description;

    if (WSADuplicateSocketW(static_cast<SOCKET>(socketHandle), GetCurrentProcessId(),
                            &description) == 0)
        view->socket = WSASocketW(FROM_PROTOCOL_INFO, FROM_PROTOCOL_INFO, FROM_PROTOCOL_INFO,
                                  &description, 0, 0);
}

void ConnectionSocket::detach()
{
    const std::scoped_lock sl(view->lock);

    if (view->socket != INVALID_SOCKET)
        closesocket(view->socket);

    view->socket = INVALID_SOCKET;
}

ConnectionSocket::Input ConnectionSocket::look() const
{
    const std::scoped_lock sl(view->lock);

    if (view->socket == INVALID_SOCKET)
        return {};

    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(view->socket, &readable);
    timeval noWait{};
    return {select(0, &readable, nullptr, nullptr, &noWait) > 0, 0};
}

bool ConnectionSocket::shutDown()
{
    const std::scoped_lock sl(view->lock);
    return view->socket != INVALID_SOCKET && shutdown(view->socket, SD_BOTH) == 0;
}

} // namespace quelta::platform
