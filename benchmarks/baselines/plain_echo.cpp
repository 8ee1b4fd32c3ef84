// Lower bound for requests: connects to the masters and echoes every 100 bytes, with two system
// calls for each request and one thread for each connection. Usage: PORT MASTERS. Exits at the end
// of its standard input.
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "support/Frame.h"
#include "support/Loopback.h"
#include "support/ServeUntilInputEnds.h"

namespace {

using namespace quelta::bench;

int connectTo(uint32_t ip, uint16_t port)
{
    const int handle = socket(AF_INET, SOCK_STREAM, 0);
    const auto address = makeSocketAddress(ip, port);
    const int on = 1;
    setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    return connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0
               ? handle
               : -1;
}

void echo(int handle)
{
    Frame frame;

    while (recv(handle, frame.data(), frame.size(), MSG_WAITALL) ==
           static_cast<ssize_t>(frame.size()))
        if (send(handle, frame.data(), frame.size(), MSG_NOSIGNAL) < 0)
            break;

    close(handle);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;

    const auto port = static_cast<uint16_t>(std::atoi(argv[1]));

    for (int i = 0; i < std::atoi(argv[2]); ++i)
    {
        const int handle = connectTo(getMasterIp(i), port);

        if (handle < 0)
            return 1;

        std::thread(echo, handle).detach();
    }

    quelta::bench::serveUntilInputEnds();
    _exit(0); // the threads run for ever
}
