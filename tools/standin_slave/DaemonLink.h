// The stand-in's connection to the daemon's slave monitor: the framework's message framing spoken
// on a plain socket, since a scenario may also want bytes that are no frame. Used from one thread.
#pragma once

#include <cstdint>
#include <vector>

#include <juce_core/juce_core.h>

namespace quelta {

class DaemonLink
{
public:
    enum class Event
    {
        none,    ///< Nothing that is complete came in time.
        message, ///< A whole message came, see getMessage.
        lost ///< The daemon closed the connection, or sent what is no frame; the link is closed now.
    };

    /** Connects to the port on 127.0.0.1. */
    bool connect(uint16_t port);

    void close();

    bool isConnected() const { return socket.isConnected(); }

    /** Sends one message, framed. False if the connection is gone. */
    bool sendMessage(const std::vector<uint8_t>& payload);

    /** Sends bytes as they are. False if the connection is gone. */
    bool sendRaw(const std::vector<uint8_t>& bytes);

    /** Waits up to `milliseconds` for something from the daemon. */
    Event poll(int milliseconds);

    /** The payload of the message that poll told of. */
    const std::vector<uint8_t>& getMessage() const { return message; }

private:
    Event takeByte(uint8_t byte);

    juce::StreamingSocket socket;
    std::vector<uint8_t> received; ///< The frame that is coming in.
    std::vector<uint8_t> message;
};

} // namespace quelta
