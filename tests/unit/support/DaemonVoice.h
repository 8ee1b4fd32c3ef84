// Speaks to the console master as a daemon does, in records written by hand. One thread uses it.
#pragma once

#include <optional>
#include <string>

#include <juce_core/juce_core.h>

#include "Frames.h"
#include "LogCapture.h"
#include "MasterRecords.h"

namespace quelta::test {

class DaemonVoice
{
public:
    /** Connects to a console master on this machine. */
    explicit DaemonVoice(uint16_t masterPort)
    {
        connected = socket.connect("127.0.0.1", masterPort, timeoutMs);
    }

    bool isConnected() const { return connected; }

    /** Sends a record that names the owner. */
    void send(uint32_t type, const MasterAddress& owner = {}, const std::string& ownerText = {})
    {
        sendRaw(frame(makeRecord(type, owner, ownerText)));
    }

    void sendFrame(const Bytes& payload) { sendRaw(frame(payload)); }

    void sendRaw(const Bytes& bytes) { socket.write(bytes.data(), static_cast<int>(bytes.size())); }

    /** Whether something to read, or the end of the connection, has arrived within this time. */
    bool waitForInput(int milliseconds) { return socket.waitUntilReady(true, milliseconds) != 0; }

    /** The next framed record of the console master, header included; empty if none comes. */
    Bytes receiveFrame()
    {
        Bytes bytes(8 + 92);
        const auto size = static_cast<int>(bytes.size());

        if (!waitForInput(timeoutMs) || socket.read(bytes.data(), size, true) != size)
            return {};

        return bytes;
    }

    /** The type of the next record; nothing if none comes. */
    std::optional<uint32_t> receiveType()
    {
        const auto bytes = receiveFrame();
        return bytes.empty() ? std::nullopt : std::optional(get32(bytes, 16));
    }

    /** Waits until the console master has closed the connection, ignoring what it sent before. */
    bool waitUntilClosed()
    {
        while (waitForInput(timeoutMs))
        {
            uint8_t byte = 0;

            if (socket.read(&byte, 1, true) != 1)
                return true;
        }

        return false;
    }

    void close() { socket.close(); }

private:
    static constexpr int timeoutMs = 1000 * static_cast<int>(LogCapture::hangLimit.count());

    juce::StreamingSocket socket;
    bool connected = false;
};

} // namespace quelta::test
