// The connection to the daemon's slave monitor. A thread of its own sends the messages when they
// are due, so that neither output nor a check nor the program can delay a heartbeat.
//
// The owner makes all calls, from one thread. The listener is called on the connection's threads
// and must not call back. `lock` guards the schedule; it is not held while a message is sent.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

#include "exec_slave/MessageSchedule.h"
#include "util/PeerConnection.h"

namespace quelta::execslave {

class MonitorLink final : private PeerConnection
{
public:
    class Listener
    {
    public:
        virtual ~Listener() = default;

        virtual void daemonAskedToStop() = 0;

        /** The daemon has closed the connection, or it is broken. May be called more than once. */
        virtual void daemonLost() = 0;
    };

    explicit MonitorLink(Listener& linkListener);
    ~MonitorLink() override;

    /** Connects to the port on 127.0.0.1 and begins to send AUTHENTICATING. Returns what has
        failed; empty on success. Called once. */
    std::string open(uint16_t port);

    /** Sends SLAVE_INFO now and heartbeats from then on. */
    void announce(uint32_t version, uint32_t numGpus);

    /** Suspends or resumes the heartbeats. */
    void setAlive(bool isAlive);

    /** Waits until SLAVE_INFO has been sent. */
    bool waitUntilAnnounced(std::chrono::milliseconds limit);

private:
    void connectionLost() override;
    void messageReceived(const juce::MemoryBlock& payload) override;
    void sendMessages(const std::stop_token& stop);
    bool send(const SlaveDaemonMessage& message);

    Listener& listener;
    std::mutex lock;
    std::condition_variable_any changed; ///< Of the schedule or of what has been sent.
    MessageSchedule schedule;
    bool announced = false; ///< SLAVE_INFO has been sent.
    std::jthread sender;
};

} // namespace quelta::execslave
