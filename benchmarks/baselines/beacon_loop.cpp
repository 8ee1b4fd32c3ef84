// Baseline for beacons: the daemon's two system calls, waiting and receiving, and nothing else.
// Usage: PORT. Exits at the end of its standard input.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <thread>

#include "support/Loopback.h"
#include "support/ServeUntilInputEnds.h"

namespace {

constexpr int waitMs = 100;

void receiveLoop(int handle)
{
    std::array<char, 1000> datagram;
    pollfd waited{handle, POLLIN, 0};

    for (;;)
    {
        if (poll(&waited, 1, waitMs) <= 0)
            continue;

        sockaddr_in sender{};
        socklen_t senderSize = sizeof(sender);
        recvfrom(handle, datagram.data(), datagram.size(), MSG_DONTWAIT,
                 reinterpret_cast<sockaddr*>(&sender), &senderSize);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;

    const int handle = socket(AF_INET, SOCK_DGRAM, 0);
    const auto address =
        quelta::bench::makeSocketAddress(INADDR_ANY, static_cast<uint16_t>(std::atoi(argv[1])));

    if (bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        return 1;

    std::thread(receiveLoop, handle).detach();
    quelta::bench::serveUntilInputEnds();
    _exit(0); // the thread runs for ever
}
