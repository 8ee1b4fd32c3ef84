#include "exec_slave/platform/PortProbe.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "exec_slave/platform/SystemError.h"

namespace quelta::execslave {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int pollMs = 50; ///< Between two looks at the request to stop.

using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

class Socket
{
public:
    explicit Socket(const addrinfo& address)
        : descriptor(
              socket(address.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP))
    {}

    ~Socket()
    {
        if (descriptor >= 0)
            close(descriptor);
    }

    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    const int descriptor;
};

std::string describe(int error)
{
    return error == 0 ? std::string() : describeSystemError(error);
}

/** Waits for the outcome of a connection that is being made. Returns its error number. */
int waitForOutcome(int descriptor, Clock::time_point deadline, const std::stop_token& stop)
{
    while (!stop.stop_requested() && Clock::now() < deadline)
    {
        pollfd waited{descriptor, POLLOUT, 0};

        if (poll(&waited, 1, pollMs) <= 0)
            continue;

        int error = 0;
        socklen_t size = sizeof(error);
        getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size);
        return error;
    }

    return ETIMEDOUT;
}

} // namespace

std::string probePort(const std::string& host, uint16_t port, std::chrono::milliseconds limit,
                      const std::stop_token& stop)
{
    const auto deadline = Clock::now() + limit;
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = AI_NUMERICSERV;
    addrinfo* found = nullptr;

    if (const int error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &wanted, &found);
        error != 0)
        return error == EAI_SYSTEM ? describe(errno) : gai_strerror(error);

    const Addresses addresses(found, freeaddrinfo);
    const Socket probe(*found);

    if (probe.descriptor < 0)
        return describe(errno);

    if (connect(probe.descriptor, found->ai_addr, found->ai_addrlen) == 0)
        return {};

    return errno == EINPROGRESS ? describe(waitForOutcome(probe.descriptor, deadline, stop))
                                : describe(errno);
}

} // namespace quelta::execslave
