// The thread that receives the beacons of masters on the daemon's port and reports each master's
// address.
//
// The owner constructs it, sets the listener, starts the thread and destroys it, which stops the
// thread. A socket error ends discovery for the rest of the run; existing connections are not
// affected. It holds no lock.
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

    /** To be called before the thread is started. */
    void setListener(MasterDiscoveryListener* newListener) { listener = newListener; }

    void run() override;

private:
    bool openSocket();
    bool serveOneDatagram();

    const uint16_t port;
    MasterDiscoveryListener* listener = nullptr;

    /** Used by this thread only. After an error it stays open until the object is destroyed. */
    platform::BeaconSocket socket;
};

} // namespace quelta
