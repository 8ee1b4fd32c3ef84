// The TCP connection to one master. The daemon always connects, it never accepts.
//
// The owner's timer connects and checks the reader (connectToMaster, connectionMade, markIfDeaf: on
// the message thread, under the owner's lock). Requests arrive on the reader thread
// (messageReceived, connectionLost), which takes the owner's lock in handleRequest. The owner's
// lock guards `unusable`.
#pragma once

#include "master/DaemonNetworkThread.h"
#include "master/MasterLink.h"
#include "util/PeerConnection.h"

namespace quelta {

class DaemonNetworkThread::MasterConnection final : public PeerConnection, public MasterLink
{
public:
    MasterConnection(const MasterAddress& masterAddress, DaemonNetworkThread& owningThread);

    /** Disconnects and joins the reader thread. Safe under the owner's lock: handleRequest gives up
        when its thread is asked to exit. */
    ~MasterConnection() override;

    const MasterAddress& getAddress() const override { return address; }
    bool isUsable() const override { return !unusable && isConnected(); }
    bool connectToMaster() override;
    void markIfDeaf(uint32_t now) override;

    /** Times out after 200 ms (500 ms on Windows) if the master does not read. The stream is then
        no longer on a frame boundary, so nothing more is sent and the next tick reconnects. */
    void send(const MasterDaemonMessage::Bytes& record) override;

    void connectionMade() override;
    void connectionLost() override;
    void messageReceived(const juce::MemoryBlock& payload) override;

private:
    const MasterAddress address;
    DaemonNetworkThread& owner;
    bool unusable = false; ///< The next tick has to reconnect.
};

} // namespace quelta
