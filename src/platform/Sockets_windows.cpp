#include "platform/Sockets.h"

#include <winsock2.h>

#include <mstcpip.h>
#include <ws2tcpip.h>

#include <array>

#include "log/Log.h"

namespace quelta::platform {

namespace {

constexpr DWORD sendTimeoutMs = 200; ///< Windows rounds it up to 500.

// Windows sends ten probes: it detects an idle peer that has vanished after 10 + 10 * 1 = 20 s.
constexpr ULONG keepAliveIdleMs = 10'000;
constexpr ULONG keepAliveIntervalMs = 1'000;

static_assert(sizeof(SocketHandle) == sizeof(SOCKET));

bool winsockStarted = false;

sockaddr_in makeAddress(uint32_t ip, uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(ip);
    return address;
}

/** Returns the error number with which a connection to this address fails at once; otherwise 0. */
int probeConnection(uint32_t ip, uint16_t port)
{
    const auto probe = socket(AF_INET, SOCK_STREAM, 0);

    if (probe == INVALID_SOCKET)
        return WSAGetLastError();

    u_long nonBlocking = 1;
    ioctlsocket(probe, static_cast<long>(FIONBIO), &nonBlocking);
    const auto address = makeAddress(ip, port);
    int error = 0;

    if (connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        error = WSAGetLastError();

    closesocket(probe);
    return error == WSAEWOULDBLOCK ? 0 : error;
}

bool bindToEveryAddress(SOCKET socket, uint16_t port)
{
    const auto address = makeAddress(INADDR_ANY, port);
    return ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

} // namespace

void startWinsock()
{
    if (winsockStarted)
        return;

    WSADATA data;

    if (WSAStartup(MAKEWORD(2, 2), &data) == 0)
        winsockStarted = true;
    else
        logError("failed to send start up Winsock DLL: %s", socketErrorText().c_str());
}

void stopWinsock()
{
    if (!winsockStarted)
        return;

    WSACleanup();
    winsockStarted = false;
}

std::string socketErrorText()
{
    const auto error = WSAGetLastError();

    if (error == 0)
        return "- (0)";

    // Not FormatMessageA, whose result is in the system's code page: the log is UTF-8.
    std::array<wchar_t, 1024> text{};
    FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                   static_cast<DWORD>(error), 0, text.data(), static_cast<DWORD>(text.size()),
                   nullptr);
    text.back() = L'\0';
    return juce::String(text.data()).toStdString() + " (" + std::to_string(error) + ")";
}

std::string connectErrorText(uint32_t ip, uint16_t port, ConnectFailure failure)
{
    WSASetLastError(failure == ConnectFailure::timedOut ? WSAETIMEDOUT : probeConnection(ip, port));
    return socketErrorText();
}

void prepareMasterSocket(SocketHandle socketHandle)
{
    const auto socket = static_cast<SOCKET>(socketHandle);
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&sendTimeoutMs),
               sizeof(sendTimeoutMs));

    tcp_keepalive keepAlive{1, keepAliveIdleMs, keepAliveIntervalMs};
    DWORD returned = 0;
    WSAIoctl(socket, SIO_KEEPALIVE_VALS, &keepAlive, sizeof(keepAlive), nullptr, 0, &returned,
             nullptr, nullptr);
}

bool listenerWouldSharePort(uint16_t port)
{
    const auto probe = ::socket(AF_INET, SOCK_STREAM, 0);

    if (probe == INVALID_SOCKET)
        return false; // the listener would fail as well

    // Only an exclusive bind fails if another socket is bound to a single address.
    const BOOL exclusive = TRUE;
    setsockopt(probe, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&exclusive),
               sizeof(exclusive));
    const bool taken = !bindToEveryAddress(probe, port);
    closesocket(probe);
    return taken;
}

bool BeaconSocket::create()
{
    handle = static_cast<SocketHandle>(::socket(AF_INET, SOCK_DGRAM, 0));
    return handle != noHandle;
}

bool BeaconSocket::bindTo(uint16_t port)
{
    return bindToEveryAddress(static_cast<SOCKET>(handle), port);
}

BeaconSocket::Readiness BeaconSocket::waitUntilReadable(int timeoutMs)
{
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(static_cast<SOCKET>(handle), &readable);
    timeval timeout{timeoutMs / 1000, (timeoutMs % 1000) * 1000};
    const auto result = select(0, &readable, nullptr, nullptr, &timeout);

    if (result == SOCKET_ERROR)
        return Readiness::failed;

    return result > 0 ? Readiness::ready : Readiness::timedOut;
}

int BeaconSocket::receive(void* buffer, size_t capacity, uint32_t& senderIp)
{
    sockaddr_in sender{};
    int senderSize = sizeof(sender);
    const auto count =
        recvfrom(static_cast<SOCKET>(handle), static_cast<char*>(buffer),
                 static_cast<int>(capacity), 0, reinterpret_cast<sockaddr*>(&sender), &senderSize);
    senderIp = ntohl(sender.sin_addr.s_addr);

    // The datagram was longer than the buffer and has been cut.
    if (count == SOCKET_ERROR && WSAGetLastError() == WSAEMSGSIZE)
        return static_cast<int>(capacity);

    return count == SOCKET_ERROR ? failed : count;
}

void BeaconSocket::close()
{
    if (handle != noHandle)
        closesocket(static_cast<SOCKET>(handle));

    handle = noHandle;
}

} // namespace quelta::platform
