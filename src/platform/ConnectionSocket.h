// A second view of the socket of a JUCE connection, whose reader thread may close it at any time.
// Nothing is read or written.
//
// attach, look and shutDown are called by the connection's owner, detach by the reader or the
// owner.
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

    /** What waits to be read. */
    struct Input
    {
        bool pending = false; ///< Bytes, the end of the stream or an error.
        uint64_t bytesTaken =
            0; ///< Bytes that the program has read so far, if `pending`; 0 if the system does not tell.
    };

    /** Views the open socket with this native handle from now on. */
    void attach(SocketHandle socketHandle);

    /** Ends the view. */
    void detach();

    Input look() const;

    /** Ends the traffic in both directions, so that a reader that waits on the socket leaves.
        Returns false if there is no need to: nothing is attached, or closing the socket does it in
        this order by itself. */
    bool shutDown();

private:
    struct View;
    std::unique_ptr<View> view;
};

} // namespace quelta::platform
