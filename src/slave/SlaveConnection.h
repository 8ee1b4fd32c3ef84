// The slave's connection to its monitor. connectionMade runs on the server's thread, the other
// callbacks on the reader thread. It has no state of its own and needs no lock.
#pragma once

#include "slave/SlaveMonitor.h"
#include "util/PeerConnection.h"

namespace quelta {

class SlaveMonitor::SlaveConnection final : public PeerConnection
{
public:
    explicit SlaveConnection(SlaveMonitor& owningMonitor);
    ~SlaveConnection() override;

    void connectionMade() override;
    void connectionLost() override;
    void messageReceived(const juce::MemoryBlock& payload) override;

private:
    SlaveMonitor& monitor;
};

} // namespace quelta
