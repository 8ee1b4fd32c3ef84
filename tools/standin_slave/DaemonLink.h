// The stand-in's connection to the daemon's slave monitor. It speaks JUCE's message framing on a
// plain socket, because a scenario may also send bytes that are not a valid frame. Not thread-safe.
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
        none,    ///< No complete message arrived in time.
        message, ///< A message arrived; getMessage() returns it.
        lost     ///< The daemon closed the connection or sent an invalid frame. The link is closed.
    };

    /** Connects to the port on 127.0.0.1. */
    bool connect(uint16_t port);

    void close();

    bool isConnected() const { return socket.isConnected(); }

    /** Sends one message in a frame. Returns false if the connection is lost. */
    bool sendMessage(const std::vector<uint8_t>& payload);

    /** Sends bytes without a frame. Returns false if the connection is lost. */
    bool sendRaw(const std::vector<uint8_t>& bytes);

    /** Waits up to `milliseconds` for a message or the loss of the connection. */
    Event poll(int milliseconds);

    /** The payload of the latest message. */
    const std::vector<uint8_t>& getMessage() const { return message; }

private:
    Event takeByte(uint8_t byte);

    juce::StreamingSocket socket;
    std::vector<uint8_t> received; ///< The incomplete frame.
    std::vector<uint8_t> message;
};

} // namespace quelta
