// The slave's side of the connection to a slave monitor, with hand-written messages.
#pragma once

#include <string>

#include <juce_core/juce_core.h>

#include "Frames.h"
#include "Hex.h"
#include "LogCapture.h"

namespace quelta::test {

class SlaveVoice
{
public:
    explicit SlaveVoice(uint16_t monitorPort, int timeoutMs = 3000)
    {
        connected = socket.connect("127.0.0.1", monitorPort, timeoutMs);
    }

    bool isConnected() const { return connected; }

    void sayAuthenticating() { say("0D 72 CE 7F 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"); }

    /** Two GPUs, version 513. */
    void sayInfo() { say("0D 72 CE 7F 01 00 00 00 01 00 00 00 02 00 00 00 01 02 00 00"); }

    void sayStatus() { say("0D 72 CE 7F 01 00 00 00 02 00 00 00 00 00 00 00 00 00 00 00"); }

    /** Sends any payload in JUCE's framing. */
    void say(const std::string& hex)
    {
        const auto bytes = frame(fromHex(hex));
        socket.write(bytes.data(), static_cast<int>(bytes.size()));
    }

    /** The next framed message from the monitor, 28 bytes; empty after the time limit. */
    std::string hear()
    {
        Bytes bytes(28);

        if (socket.waitUntilReady(true, limitMs) != 1 || socket.read(bytes.data(), 28, true) != 28)
            return {};

        return toHex(bytes);
    }

    /** Waits until the monitor has closed the connection. */
    bool waitUntilClosed()
    {
        uint8_t byte = 0;
        return socket.waitUntilReady(true, limitMs) != 0 && socket.read(&byte, 1, true) != 1;
    }

private:
    static constexpr int limitMs = 1000 * static_cast<int>(LogCapture::hangLimit.count());

    juce::StreamingSocket socket;
    bool connected = false;
};

/** The stop message in its frame. */
constexpr auto framedStopMessage =
    "2C 9E B4 F2 14 00 00 00 0D 72 CE 7F 01 00 00 00 03 00 00 00 00 00 00 00 00 00 00 00 ";

} // namespace quelta::test
