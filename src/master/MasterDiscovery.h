// The thread that listens for the beacons of masters on the daemon's port and passes each one's
// address on.
//
// The owner constructs it, sets the listener, starts the thread, stops it and destroys it. A socket
// error ends discovery for the rest of the run; connections that exist are not affected. It holds
// no lock.
#pragma once

#include <cstdint>

#include <juce_core/juce_core.h>

#include "master/MasterDiscoveryListener.h"
#include "platform/Sockets.h"

namespace quelta {

class MasterDiscovery final : public juce::Thread
{
public:
    explicit MasterDiscovery(uint16_t portToListenOn);
    ~MasterDiscovery() override;

    /** Before the thread is started. */
    void setListener(MasterDiscoveryListener* newListener) { listener = newListener; }

    void run() override;

private:
    bool openSocket();
    bool serveOneDatagram();

    const uint16_t port;
    MasterDiscoveryListener* listener = nullptr;
    platform::BeaconSocket
        socket; ///< Used by this thread only; after an error it stays open with the object.
};

} // namespace quelta
