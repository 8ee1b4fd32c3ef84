// A JUCE connection server that stops without losing a descriptor and without killing its thread.
//
// JUCE's stop() connects to the listener to wake the server's thread, and on Linux often leaks the
// descriptor that accept() makes for that connection. It also kills the thread by force if it does
// not end within 4 s, for instance because a log line blocks it. stopServing() avoids both: it
// wakes the thread with a connection of its own, waits until the thread leaves, then calls stop().
//
// How to use it:
//   - derive from PeerServer and implement acceptConnection();
//   - call serve() instead of beginWaitingForSocket();
//   - call finishAccepting() at the end of the connection's connectionMade();
//   - call stopServing() in the destructor of the derived class, before its members go.
//
// The owner's thread calls serve() and stopServing(); the server's thread calls acceptConnection()
// and finishAccepting(). No lock: the shared state is atomic.
#pragma once

#include <atomic>
#include <cstdint>

#include <juce_events/juce_events.h>

namespace quelta {

class PeerServer : public juce::InterprocessConnectionServer
{
public:
    /** Called at the end of the connectionMade() that follows an acceptConnection(), which JUCE
        runs on the same thread. Until then stopServing() waits. */
    void finishAccepting() { accepting = false; }

    /** Called by JUCE; derived classes implement acceptConnection(). */
    juce::InterprocessConnection* createConnectionObject() final;

protected:
    /** Listens on `port` (0: any free port) of the local address `bindAddress` (empty: every
        interface). Returns false if the port is not available. */
    bool serve(uint16_t port, const juce::String& bindAddress = {});

    /** Stops listening and ends the server's thread. Idempotent. Waits without limit while a client
        is being accepted: JUCE would kill the thread. acceptConnection() and connectionMade() must
        therefore return. */
    void stopServing();

    /** Returns the object that serves an accepted client, or null to close the client's connection.
        JUCE does not take ownership. Not called once stopServing() has begun. */
    virtual juce::InterprocessConnection* acceptConnection() = 0;

private:
    juce::String wakeUpAddress;
    std::atomic<bool> stopping{false};
    std::atomic<bool> accepting{false};
    juce::WaitableEvent leaving;
};

} // namespace quelta
