// The TCP connection to one master. The daemon is always the connecting side.
//
// The owner's timer connects (connectToMaster, connectionMade: message thread, under the owner's lock);
// requests arrive on the connection's own thread (messageReceived, connectionLost), which takes the owner's
// lock in handleRequest. `sendFellShort` is guarded by the owner's lock.
#pragma once

#include "master/DaemonNetworkThread.h"

namespace quelta {

class DaemonNetworkThread::MasterConnection final : public juce::InterprocessConnection
{
public:
    MasterConnection(const MasterAddress& masterAddress, DaemonNetworkThread& owningThread);

    /** Disconnects, and waits for the connection's thread. Never under a lock that this thread could only
       wait for: handleRequest gives up when its thread is asked to exit. */
    ~MasterConnection() override;

    const MasterAddress& getAddress() const { return address; }

    /** Whether it is connected and has taken everything that was sent. */
    bool isUsable() const { return !sendFellShort && isConnected(); }

    /** Connects within 1000 ms; ends an earlier connection first. */
    bool connectToMaster();

    /** Sends one record. A master that does not read makes it fall short after 200 ms; nothing more is sent
        then, since the stream has lost its frame boundary, and the next tick connects anew. */
    void send(const MasterDaemonMessage::Bytes& record);

    void connectionMade() override;
    void connectionLost() override;
    void messageReceived(const juce::MemoryBlock& payload) override;

private:
    const MasterAddress address;
    DaemonNetworkThread& owner;
    bool sendFellShort = false;
};

} // namespace quelta
