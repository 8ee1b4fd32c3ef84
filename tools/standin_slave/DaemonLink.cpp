#include "standin_slave/DaemonLink.h"

#include "messages/Framing.h"
#include "util/LittleEndian.h"

namespace quelta {

namespace {

constexpr uint32_t maxMessageSize = 65536; // far above the daemon's 20 bytes
constexpr int connectTimeoutMs = 3000;

} // namespace

bool DaemonLink::connect(uint16_t port)
{
    close();
    return socket.connect("127.0.0.1", port, connectTimeoutMs);
}

void DaemonLink::close()
{
    socket.close();
    received.clear();
}

bool DaemonLink::sendMessage(const std::vector<uint8_t>& payload)
{
    std::vector<uint8_t> frame(frameHeaderSize);
    writeLittleEndian32(frame.data(), frameMagic);
    writeLittleEndian32(frame.data() + 4, static_cast<uint32_t>(payload.size()));
    frame.insert(frame.end(), payload.begin(), payload.end());
    return sendRaw(frame);
}

bool DaemonLink::sendRaw(const std::vector<uint8_t>& bytes)
{
    for (size_t sent = 0; sent < bytes.size();)
    {
        const auto count = socket.write(bytes.data() + sent, static_cast<int>(bytes.size() - sent));

        if (count <= 0)
            return false;

        sent += static_cast<size_t>(count);
    }

    return socket.isConnected();
}

DaemonLink::Event DaemonLink::poll(int milliseconds)
{
    for (int timeoutMs = milliseconds; socket.waitUntilReady(true, timeoutMs) != 0; timeoutMs = 0)
    {
        // One byte at a time: after a read that may return early, JUCE leaves the socket
        // non-blocking, also for writes.
        uint8_t byte = 0;
        const auto event = socket.read(&byte, 1, true) == 1 ? takeByte(byte) : Event::lost;

        if (event == Event::lost)
            close();

        if (event != Event::none)
            return event;
    }

    return Event::none;
}

DaemonLink::Event DaemonLink::takeByte(uint8_t byte)
{
    received.push_back(byte);

    if (received.size() < frameHeaderSize)
        return Event::none;

    const auto length = readLittleEndian32(received.data() + 4);

    if (readLittleEndian32(received.data()) != frameMagic || length > maxMessageSize)
        return Event::lost;

    if (received.size() < frameHeaderSize + length)
        return Event::none;

    message.assign(received.begin() + frameHeaderSize, received.end());
    received.clear();
    return Event::message;
}

} // namespace quelta
