// Up to a thousand masters in one thread. Each has its own loopback address, all share one port,
// and each accepts one connection. Not thread-safe.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/Frame.h"

namespace quelta::bench {

/** Nanoseconds of the monotonic clock, which all processes share. */
int64_t now();

class MasterSwarm
{
public:
    using OnRecord = std::function<void(int master, MasterMessageType type)>;

    /** Listens for `count` masters. Throws std::runtime_error on failure. */
    explicit MasterSwarm(int count);
    ~MasterSwarm();

    MasterSwarm(const MasterSwarm&) = delete;
    MasterSwarm& operator=(const MasterSwarm&) = delete;

    uint16_t getPort() const { return port; }
    int getCount() const { return static_cast<int>(masters.size()); }
    int getNumConnected() const { return numConnected; }
    bool isConnected(int master) const { return at(master).connection >= 0; }

    /** When the last connection was accepted. */
    int64_t getLastConnected() const { return lastConnected; }

    /** Sends a request of this type in the name of `master`. */
    void send(int master, MasterMessageType type);

    /** The beacon of `master`. */
    MasterDaemonMessage::Bytes makeBeacon(int master) const;

    /** Passes each received record to `onRecord` until `done` returns true. Returns false if that
        takes longer than `timeoutMs`. Calls `idle` about every `idleMs`. */
    bool readUntil(const std::function<bool()>& done, int timeoutMs, const OnRecord& onRecord,
                   const std::function<void()>& idle = {}, int idleMs = 1000);

    /** Makes readUntil() note when this process ends. */
    void watchProcess(int pid);

    /** When the watched process ended; 0 while it runs. */
    int64_t getProcessEnded() const { return processEnded; }

private:
    struct Master
    {
        int listener = -1;
        int connection = -1;
        std::vector<uint8_t> unread;
    };

    Master& at(int master) { return masters[static_cast<size_t>(master)]; }
    const Master& at(int master) const { return masters[static_cast<size_t>(master)]; }

    bool listenOnOnePort();
    void closeAll();
    void watch(int handle, uint32_t kind, int master);
    void serve(uint64_t data, const OnRecord& onRecord);
    void accept(int master);
    void read(int master, const OnRecord& onRecord);

    std::vector<Master> masters;
    uint16_t port = 0;
    int numConnected = 0;
    int64_t lastConnected = 0;
    int poller = -1;
    int process = -1;
    int64_t processEnded = 0;
};

} // namespace quelta::bench
