// A daemon as the console master sees it: receives beacons on a free loopback port, connects to the
// master of the first one and answers its requests. It has no slave but reports one.
//
// A thread of its own does all that.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <juce_core/juce_core.h>

#include "DaemonVoice.h"

namespace quelta::test {

class FakeNode
{
public:
    enum class Greeting
    {
        none,
        junkFrame ///< Sends a frame that is not a record before everything else.
    };

    explicit FakeNode(Greeting nodeGreeting = Greeting::none) : greeting(nodeGreeting)
    {
        EXPECT_TRUE(beacons.bindToPort(0, "127.0.0.1"));
        port = static_cast<uint16_t>(beacons.getBoundPort());
        thread = std::thread([this] { run(); });
    }

    ~FakeNode()
    {
        stopping = true;
        thread.join();
    }

    FakeNode(const FakeNode&) = delete;
    FakeNode& operator=(const FakeNode&) = delete;

    uint16_t getPort() const { return port; }
    std::string getName() const { return "127.0.0.1:" + std::to_string(port); }

    /** Whether the console master has closed the connection. */
    bool wasDisconnected() const { return disconnected; }

private:
    void run()
    {
        Bytes beacon(92);

        while (!stopping)
        {
            if (beacons.waitUntilReady(true, pollMs) != 1 ||
                beacons.read(beacon.data(), static_cast<int>(beacon.size()), false) != 92)
                continue;

            master = {get32(beacon, 12), get16(beacon, 16)};
            DaemonVoice connection(master.port);
            serve(connection);
            return;
        }
    }

    void serve(DaemonVoice& connection)
    {
        if (greeting == Greeting::junkFrame)
            connection.sendFrame(Bytes(3));

        while (!stopping)
        {
            if (!connection.waitForInput(pollMs))
                continue;

            const auto request = connection.receiveType();

            if (!request)
            {
                disconnected = true;
                return;
            }

            answer(connection, *request);
        }
    }

    void answer(DaemonVoice& connection, uint32_t request)
    {
        switch (request)
        {
            case scanRequest:
                return connection.send(daemonStatus, owner);
            case startRequest:
                owner = master;
                connection.send(startReply, owner);
                return connection.send(slaveRunning, owner);
            case stopRequest:
                owner = {};
                return connection.send(stopReply, owner);
            default:
                ADD_FAILURE() << "unexpected request " << request;
        }
    }

    static constexpr int pollMs = 5;

    const Greeting greeting;
    juce::DatagramSocket beacons;
    uint16_t port = 0;
    MasterAddress master, owner;
    std::atomic<bool> stopping{false};
    std::atomic<bool> disconnected{false};
    std::thread thread;
};

} // namespace quelta::test
