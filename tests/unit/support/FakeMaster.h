// A render master: listens on a free loopback port, sends hand-written records and keeps the
// records that the daemon sends.
//
// Its own thread accepts, reads and closes connections; the test's thread sends and queries.
#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <juce_core/juce_core.h>

#include "LogCapture.h"
#include "MasterRecords.h"

namespace quelta::test {

class FakeMaster
{
public:
    FakeMaster()
    {
        listener.createListener(0, "127.0.0.1");
        address = {0x7F000001, static_cast<uint16_t>(listener.getBoundPort())};
        thread = std::thread([this] { run(); });
    }

    ~FakeMaster()
    {
        stopping = true;
        thread.join();
    }

    FakeMaster(const FakeMaster&) = delete;
    FakeMaster& operator=(const FakeMaster&) = delete;

    const MasterAddress& getAddress() const { return address; }
    std::string getName() const { return formatAddress(address); }

    /** Sends a request with its own address. */
    void send(uint32_t type, const std::string& text = {})
    {
        sendFrame(makeRecord(type, address, text));
    }

    /** Sends any payload in JUCE's framing. */
    void sendFrame(const Bytes& payload)
    {
        const auto bytes = frame(payload);
        std::shared_ptr<juce::StreamingSocket> socket;

        {
            const std::lock_guard guard(lock);
            socket = connection;
        }

        if (socket != nullptr)
            socket->write(bytes.data(), static_cast<int>(bytes.size()));
    }

    /** Waits until the daemon has connected `number` times in all. */
    bool waitForConnection(int number = 1)
    {
        return waitUntil([this, number] { return connectionsMade >= number; });
    }

    bool isConnected()
    {
        const std::lock_guard guard(lock);
        return connection != nullptr;
    }

    /** Waits until the daemon has closed the connection. */
    bool waitForDisconnection()
    {
        return waitUntil([this] { return connection == nullptr; });
    }

    /** Waits for the next record from the daemon; nullopt after the time limit. */
    std::optional<DaemonRecord> next()
    {
        if (!waitUntil([this] { return !records.empty(); }))
            return {};

        const std::lock_guard guard(lock);
        auto record = std::move(records.front());
        records.pop_front();
        return record;
    }

    /** The types of the next `count` records; fewer if one does not arrive. */
    std::vector<uint32_t> nextTypes(size_t count)
    {
        std::vector<uint32_t> types;

        while (types.size() < count)
            if (const auto record = next())
                types.push_back(record->type);
            else
                break;

        return types;
    }

    /** The next record of one of these types; drops the records before it. */
    std::optional<DaemonRecord> nextOf(std::initializer_list<uint32_t> types)
    {
        for (int dropped = 0; dropped < maxDropped; ++dropped)
            if (auto record = next();
                !record || std::find(types.begin(), types.end(), record->type) != types.end())
                return record;

        ADD_FAILURE() << maxDropped << " records and none of the types wanted";
        return {};
    }

    std::optional<DaemonRecord> nextOf(uint32_t type) { return nextOf({type}); }

    /** Whether all records have been taken. */
    bool hasNoRecord()
    {
        const std::lock_guard guard(lock);
        return records.empty();
    }

    /** Closes the connection but keeps listening. */
    void hangUp()
    {
        hangingUp = true;
        waitForDisconnection();
        hangingUp = false;
    }

    /** Closes the connection and the listener, so that connecting is refused. */
    void vanish()
    {
        stopping = true;
        waitUntil([this] { return ended; });
    }

private:
    void run()
    {
        while (!stopping)
        {
            if (connection == nullptr)
                acceptOne();
            else if (hangingUp.exchange(false) || !readOne())
                setConnection(nullptr);
        }

        setConnection(nullptr);
        listener.close();
        const std::lock_guard guard(lock);
        ended = true;
        changed.notify_all();
    }

    void acceptOne()
    {
        if (listener.waitUntilReady(true, pollMs) == 1)
            setConnection(std::shared_ptr<juce::StreamingSocket>(listener.waitForNextConnection()));
    }

    /** Reads one record. False if the connection has ended. */
    bool readOne()
    {
        const auto ready = connection->waitUntilReady(true, pollMs);

        if (ready <= 0)
            return ready == 0;

        Bytes header(8);

        if (connection->read(header.data(), 8, true) != 8)
            return false;

        Bytes payload(get32(header, 4));

        if (connection->read(payload.data(), static_cast<int>(payload.size()), true) !=
            static_cast<int>(payload.size()))
            return false;

        if (payload.size() != 92)
        {
            ADD_FAILURE() << "the daemon sent a record of " << payload.size() << " bytes";
            return false;
        }

        const std::lock_guard guard(lock);
        records.emplace_back(std::move(payload));
        changed.notify_all();
        return true;
    }

    void setConnection(std::shared_ptr<juce::StreamingSocket> newConnection)
    {
        const std::lock_guard guard(lock);
        connectionsMade += newConnection != nullptr ? 1 : 0;
        connection = std::move(newConnection);
        changed.notify_all();
    }

    template <typename Condition>
    bool waitUntil(Condition condition)
    {
        std::unique_lock guard(lock);
        return changed.wait_for(guard, LogCapture::hangLimit, condition);
    }

    static constexpr int pollMs = 5;
    static constexpr int maxDropped = 10'000;

    MasterAddress address;
    juce::StreamingSocket listener;
    std::atomic<bool> stopping{false};
    std::atomic<bool> hangingUp{false};

    std::mutex lock; ///< Guards all members below; only run()'s thread writes `connection`.
    std::condition_variable changed;
    std::shared_ptr<juce::StreamingSocket> connection;
    int connectionsMade = 0;
    bool ended = false;
    std::deque<DaemonRecord> records;

    std::thread thread;
};

} // namespace quelta::test
