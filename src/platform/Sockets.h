// Socket functions that JUCE lacks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace quelta::platform {

/** A native socket handle at its full width. JUCE narrows handles to int, which is lossless:
    Windows handles have 32 significant bits, and widening an int extends its sign, as Windows
    does. */
using SocketHandle = intptr_t;

/** Starts Winsock once. Logs a failure as an error and otherwise ignores it. No-op on Linux.
    Message thread. */
void startWinsock();

/** Cleans up Winsock if it was started. No-op on Linux. Message thread. */
void stopWinsock();

/** Returns the calling thread's last socket error: the system's text, then " (number)"; "- (0)" if
    there was none. */
std::string socketErrorText();

/** How an attempt to connect has failed. */
enum class ConnectFailure
{
    timedOut,
    other
};

/** Explains, in the form of socketErrorText(), why a connection to `ip` and `port` (host order)
    has failed. JUCE does not keep the reason: unless the attempt timed out, this makes another one
    to learn it, which takes at most 100 ms. */
std::string connectErrorText(uint32_t ip, uint16_t port, ConnectFailure failure);

/** Sets the time-outs of a connection to a master: sends to a peer that does not read fail after
    200 ms (500 ms on Windows, its minimum), and a vanished peer is detected within 30 s. */
void prepareMasterSocket(SocketHandle socketHandle);

/** Whether the system would let a TCP listener on all addresses share this port with another
    program's socket on a single address. Connections to that address would reach the other
    program. */
bool listenerWouldSharePort(uint16_t port);

/** The IPv4 UDP socket that receives beacons. Used by one thread. Sets no socket options. */
class BeaconSocket
{
public:
    enum class Readiness
    {
        ready,
        timedOut,
        failed
    };

    BeaconSocket() = default;
    ~BeaconSocket() { close(); }

    BeaconSocket(const BeaconSocket&) = delete;
    BeaconSocket& operator=(const BeaconSocket&) = delete;

    /** Returns false on failure; see socketErrorText(). */
    bool create();

    /** Binds to all addresses of this machine. Returns false on failure; see socketErrorText(). */
    bool bindTo(uint16_t port);

    /** Waits for a datagram. An interrupted wait counts as a time-out. */
    Readiness waitUntilReadable(int timeoutMs);

    static constexpr int failed = -1;
    static constexpr int nothingThere = -2;

    /** Receives a datagram without waiting; cuts it to `capacity` bytes. Returns the number of
        bytes, `failed`, or `nothingThere` if the kernel has dropped the datagram meanwhile.
        `senderIp` is in host order. */
    int receive(void* buffer, size_t capacity, uint32_t& senderIp);

    void close();

private:
    static constexpr SocketHandle noHandle = -1;
    SocketHandle handle = noHandle;
};

} // namespace quelta::platform
