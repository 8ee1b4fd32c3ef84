#include "exec_slave/platform/PortProbe.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <memory>

#include <juce_core/juce_core.h>

#include "exec_slave/platform/SystemError.h"
#include "platform/Console.h"

namespace quelta::execslave {

namespace {

using Clock = std::chrono::steady_clock;

constexpr long pollMicroseconds = 50'000; ///< Between two looks at the request to stop.

using Addresses = std::unique_ptr<ADDRINFOW, decltype(&FreeAddrInfoW)>;

class Socket
{
public:
    explicit Socket(const ADDRINFOW& address)
        : handle(socket(address.ai_family, SOCK_STREAM, IPPROTO_TCP))
    {
        u_long nonBlocking = 1;
        ioctlsocket(handle, static_cast<long>(FIONBIO), &nonBlocking);
    }

    ~Socket()
    {
        if (handle != INVALID_SOCKET)
            closesocket(handle);
    }

    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    const SOCKET handle;
};

std::string describe(int error)
{
    return error == 0 ? std::string() : describeSystemError(error);
}

/** Waits for the outcome of a connection that is being made. Returns its error number. Windows
    reports a refusal in the third set. */
int waitForOutcome(SOCKET handle, Clock::time_point deadline, const std::stop_token& stop)
{
    while (!stop.stop_requested() && Clock::now() < deadline)
    {
        fd_set made;
        fd_set failed;
        FD_ZERO(&made);
        FD_ZERO(&failed);
        FD_SET(handle, &made);
        FD_SET(handle, &failed);
        timeval timeout{0, pollMicroseconds};

        if (select(0, nullptr, &made, &failed, &timeout) <= 0)
            continue;

        int error = 0;
        int size = sizeof(error);
        getsockopt(handle, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
        return error;
    }

    return WSAETIMEDOUT;
}

} // namespace

std::string probePort(const std::string& host, uint16_t port, std::chrono::milliseconds limit,
                      const std::stop_token& stop)
{
    const juce::DatagramSocket winsockStarter; // JUCE starts Winsock with its first socket
    const auto deadline = Clock::now() + limit;
    const auto name = platform::toTerminatedUtf16(host.c_str());
    const auto service = std::to_wstring(port);
    ADDRINFOW wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    ADDRINFOW* found = nullptr;

    if (const int error = GetAddrInfoW(reinterpret_cast<const wchar_t*>(name.c_str()),
                                       service.c_str(), &wanted, &found);
        error != 0)
        return describe(error);

    const Addresses addresses(found, FreeAddrInfoW);
    const Socket probe(*found);

    if (probe.handle == INVALID_SOCKET)
        return describe(WSAGetLastError());

    if (connect(probe.handle, found->ai_addr, static_cast<int>(found->ai_addrlen)) == 0)
        return {};

    const int error = WSAGetLastError();
    return describe(error == WSAEWOULDBLOCK ? waitForOutcome(probe.handle, deadline, stop) : error);
}

} // namespace quelta::execslave
