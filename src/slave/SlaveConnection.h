// The slave's connection to its monitor. Its callbacks run on the server's thread (connectionMade)
// and on its own (the others); it holds no state and needs no lock.
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
