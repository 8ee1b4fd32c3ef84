// Sends datagrams to the daemon's port on the loopback.
#pragma once

#include <juce_core/juce_core.h>

#include "Frames.h"

namespace quelta::test {

/** A UDP port that was free a moment ago, below 65000; 0 if none was found. */
inline uint16_t findFreeBeaconPort()
{
    for (int attempt = 0; attempt < 1'000; ++attempt)
    {
        juce::DatagramSocket socket;
        socket.bindToPort(0);

        if (const auto port = socket.getBoundPort(); port >= 1024 && port < 65000)
            return static_cast<uint16_t>(port);
    }

    return 0;
}

class BeaconSender
{
public:
    explicit BeaconSender(uint16_t portToSendTo) : port(portToSendTo)
    {
        socket.bindToPort(0, "127.0.0.1");
    }

    void send(const Bytes& datagram)
    {
        socket.write("127.0.0.1", port, datagram.data(), static_cast<int>(datagram.size()));
    }

private:
    const uint16_t port;
    juce::DatagramSocket socket;
};

} // namespace quelta::test
