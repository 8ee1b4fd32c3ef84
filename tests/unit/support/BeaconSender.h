// Sends datagrams to the daemon's port on the loopback.
#pragma once

#include <juce_core/juce_core.h>

#include "Frames.h"

namespace quelta::test {

/** A port that was free a moment ago, and is not one of the last. */
inline uint16_t findFreeBeaconPort()
{
    for (;;)
    {
        juce::DatagramSocket socket;
        socket.bindToPort(0);

        if (const auto port = socket.getBoundPort(); port >= 1024 && port < 65000)
            return static_cast<uint16_t>(port);
    }
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
