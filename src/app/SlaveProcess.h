// One launch of the render slave: a thread that starts it, watches it every 100 ms, stops it when
// asked or when it hangs (politely first, then by force), and says how it went.
//
// States: launching -> watching -> stopping -> ended. Out of watching leads a request to stop (the
// owner asks the thread to exit), a time limit, or the slave's own end. A SlaveProcess is never
// restarted.
//
// The owner constructs it, which starts the thread; asks the thread to exit; waits for it; destroys
// it. Both notifications are made on the SlaveProcess thread.
#pragma once

#include <atomic>
#include <cstdint>

#include <juce_core/juce_core.h>

#include "app/DaemonSettings.h"
#include "app/SlaveJudgement.h"
#include "slave/MonitorPort.h"

namespace quelta {

namespace platform {
class ChildProcess;
}

class SlaveMonitor;

/** Whoever is told how a slave fares. Called on the SlaveProcess thread; must return once that
    thread has been asked to exit. */
class SlaveProcessOwner
{
public:
    virtual ~SlaveProcessOwner() = default;

    /** The slave is initialised; at most once a launch. */
    virtual void notifySlaveRunning() = 0;

    /** The slave has crashed or hung; once, at the end of such a run. Not after a failed launch. */
    virtual void notifySlaveFailed() = 0;
};

class SlaveProcess final : public juce::Thread
{
public:
    /** Starts the slave for the master at `masterAddress` (host order) and `masterPort`, or, with
        `infoRequest`, only to learn its version and number of GPUs. `owner` may be null and is not
        told about an information run. */
    SlaveProcess(uint32_t address, uint16_t port, const DaemonSettings& daemonSettings,
                 bool isInfoRequest, SlaveProcessOwner* processOwner, MonitorPort& monitorPort,
                 const SlaveTimeLimits& timeLimits = {});

    /** Stops the slave if it still runs, and waits for that. */
    ~SlaveProcess() override;

    /** What the slave reported; meaningful once the thread has ended. */
    uint32_t getSlaveVersion() const { return slaveVersion; }
    uint32_t getNumProvidedGpus() const { return numProvidedGpus; }

    /** Whether the launch failed (so also if the system refused the thread), the slave hung or it
        ended unexpectedly. Any thread. */
    bool hasFailed() const { return failed; }

    void run() override;

private:
    bool launchSlave(platform::ChildProcess& slave, const SlaveMonitor& monitor);
    SlaveNextStep watch(platform::ChildProcess& slave, const SlaveMonitor& monitor);
    SlaveObservation observe(platform::ChildProcess& slave, const SlaveMonitor& monitor);
    void conclude(platform::ChildProcess& slave, SlaveMonitor& monitor, SlaveNextStep step);
    bool stopGracefully(platform::ChildProcess& slave, SlaveMonitor& monitor);
    bool ownerWantsNotices() const { return !infoRequest && owner != nullptr; }

    const uint32_t masterAddress;
    const uint16_t masterPort;
    const DaemonSettings settings;
    const bool infoRequest;
    uint32_t slaveVersion = 0;
    uint32_t numProvidedGpus = 0;
    std::atomic<bool> failed{false};
    SlaveProcessOwner* const owner;
    MonitorPort& lastMonitorPort;
    const SlaveTimeLimits limits;
};

/** The slave's command line, as one text. `monitorPort` is where the slave reports to. */
juce::String buildSlaveCommandLine(const DaemonSettings& settings, uint32_t masterAddress,
                                   uint16_t masterPort, uint16_t monitorPort, bool infoRequest);

} // namespace quelta
