// The TCP connection to one master. The daemon is always the connecting side.
//
// The owner's timer connects and looks after the reader (connectToMaster, connectionMade,
// dropIfDeaf: message thread, under the owner's lock); requests arrive on the connection's own
// thread (messageReceived, connectionLost), which takes the owner's lock in handleRequest.
// `unusable` is guarded by the owner's lock.
#pragma once

#include "master/DaemonNetworkThread.h"
#include "master/MasterLink.h"
#include "util/PeerConnection.h"

namespace quelta {

class DaemonNetworkThread::MasterConnection final : public PeerConnection, public MasterLink
{
public:
    MasterConnection(const MasterAddress& masterAddress, DaemonNetworkThread& owningThread);

    /** Disconnects, and waits for the connection's thread. Safe under the owner's lock:
        handleRequest gives up when its thread is asked to exit. */
    ~MasterConnection() override;

    const MasterAddress& getAddress() const override { return address; }
    bool isUsable() const override { return !unusable && isConnected(); }
    bool connectToMaster() override;
    void dropIfDeaf(uint32_t now) override;

    /** A master that does not read makes the record fall short after 200 ms, on Windows 500 ms;
        nothing more is sent then, since the stream has lost its frame boundary, and the next tick
        connects anew. */
    void send(const MasterDaemonMessage::Bytes& record) override;

    void connectionMade() override;
    void connectionLost() override;
    void messageReceived(const juce::MemoryBlock& payload) override;

private:
    const MasterAddress address;
    DaemonNetworkThread& owner;
    bool unusable = false; ///< To be replaced at the next tick.
};

} // namespace quelta
