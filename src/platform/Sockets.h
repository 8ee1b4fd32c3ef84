// The socket layer as far as the framework's classes do not cover it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace quelta::platform {

/** The system's own handle of a socket, at its full width. JUCE narrows it to an int, which loses
    nothing: a Windows handle has 32 significant bits, and widening an int extends its sign as
    Windows does. */
using SocketHandle = intptr_t;

/** Starts the system's socket layer once; a failure is logged as an error and otherwise ignored.
    Does nothing on systems whose sockets need no start. Message thread. */
void startWinsock();

/** Cleans the socket layer up if its start-up succeeded. Message thread. */
void stopWinsock();

/** The calling thread's last socket error: the system's own text, then " (number)"; "- (0)" for
    none. */
std::string socketErrorText();

/** Why a connection to `ip` and `port`, both in host order, could not be made, in the form of
    socketErrorText(). JUCE does not keep the reason: unless the attempt timed out, a second one is
    made for it, which takes 100 ms at most. */
std::string connectErrorText(uint32_t ip, uint16_t port, bool timedOut);

/** Prepares the connection to a master: a send that the peer does not take fails after 200 ms (500
    ms on Windows, its minimum), and a peer that vanished without a word is noticed within half a
    minute. */
void prepareMasterSocket(SocketHandle socketHandle);

/** Whether a TCP listener on all addresses would succeed beside another program's socket on this
    port. What connects to that program's address would then reach that program. */
bool listenerWouldSharePort(uint16_t port);

/** The IPv4 datagram socket on which beacons arrive. One thread uses it. No socket options are
    set. */
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

    /** False on failure; socketErrorText() tells why. */
    bool create();

    /** Binds to every address of this machine. False on failure; socketErrorText() tells why. */
    bool bindTo(uint16_t port);

    /** Waits until a datagram is there. An interrupted wait is a time-out. */
    Readiness waitUntilReadable(int timeoutMs);

    static constexpr int failed = -1;
    static constexpr int nothingThere = -2;

    /** Takes one datagram, cut to `capacity` bytes if it is longer, without waiting for one.
        Returns the bytes stored, or `failed`, or `nothingThere` if the system has thrown the
        datagram away after all. `senderIp` is in host order. */
    int receive(void* buffer, size_t capacity, uint32_t& senderIp);

    void close();

private:
    static constexpr SocketHandle none = -1;
    SocketHandle handle = none;
};

} // namespace quelta::platform
