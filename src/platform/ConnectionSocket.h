// Watches and shuts down the socket of a JUCE connection, whose reader thread may close it at any
// time. Never reads or writes.
//
// The connection's owner calls attach, look and shutDown; the owner or the reader calls detach.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/Sockets.h"

namespace quelta::platform {

class ConnectionSocket
{
public:
    ConnectionSocket();
    ~ConnectionSocket();

    ConnectionSocket(const ConnectionSocket&) = delete;
    ConnectionSocket& operator=(const ConnectionSocket&) = delete;

    /** The unread input of the socket. */
    struct Input
    {
        /** Whether bytes, the end of the stream or an error wait to be read. */
        bool pending = false;

        /** How many bytes the program has read so far. 0 unless `pending`, and always on
            Windows. */
        uint64_t bytesTaken = 0;
    };

    /** Starts watching the open socket with this handle. */
    void attach(SocketHandle socketHandle);

    /** Stops watching. */
    void detach();

    Input look() const;

    /** Shuts both directions down, which wakes a waiting reader. Returns false if nothing is
        attached, and on Linux, where JUCE's close() shuts the socket down first. */
    bool shutDown();

private:
    struct View;
    std::unique_ptr<View> view;
};

} // namespace quelta::platform
