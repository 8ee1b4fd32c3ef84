// One launch of the render slave: a thread that launches it, polls it every 100 ms, stops it on
// request or when it hangs (first with a message, then by force), and records the outcome.
//
// States: launching -> watching -> stopping -> ended. Watching ends when the owner asks the thread
// to exit, when a time limit expires or when the slave exits. A SlaveProcess is never restarted.
//
// The owner constructs it, which starts the thread, later asks the thread to exit, waits for it and
// destroys it. The SlaveProcess thread makes both notifications.
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

/** Receives notifications about a slave, on the SlaveProcess thread. They must return once that
    thread has been asked to exit. */
class SlaveProcessOwner
{
public:
    virtual ~SlaveProcessOwner() = default;

    /** The slave has initialised. At most once per launch. */
    virtual void notifySlaveRunning() = 0;

    /** The slave has crashed or hung. Once, at the end of the run; not after a failed launch. */
    virtual void notifySlaveFailed() = 0;
};

class SlaveProcess final : public juce::Thread
{
public:
    /** Launches the slave for the master at `address` (host order) and `port`; with `isInfoRequest`
        only to learn its version and number of GPUs. `processOwner` may be null and is not notified
        of an information run. `monitorPort` has to outlive the thread. */
    SlaveProcess(uint32_t address, uint16_t port, const DaemonSettings& daemonSettings,
                 bool isInfoRequest, SlaveProcessOwner* processOwner, MonitorPort& monitorPort,
                 const SlaveTimeLimits& timeLimits = {});

    /** Stops the slave if it still runs, and waits until it has ended. */
    ~SlaveProcess() override;

    /** As reported by the slave. Valid once the thread has ended. */
    uint32_t getSlaveVersion() const { return slaveVersion; }
    uint32_t getNumProvidedGpus() const { return numProvidedGpus; }

    /** Whether the launch failed (or the thread could not start), the slave hung or it exited
        unexpectedly. Any thread. */
    bool hasFailed() const { return failed; }

    void run() override;

private:
    bool launchSlave(platform::ChildProcess& slave, const SlaveMonitor& monitor);
    SlaveNextStep watch(platform::ChildProcess& slave, const SlaveMonitor& monitor);
    SlaveObservation observe(platform::ChildProcess& slave, const SlaveMonitor& monitor);
    void conclude(platform::ChildProcess& slave, SlaveMonitor& monitor, SlaveNextStep step);
    bool stopGracefully(platform::ChildProcess& slave, SlaveMonitor& monitor);
    bool mustNotifyOwner() const { return !infoRequest && owner != nullptr; }

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

/** Builds the slave's command line. The slave reports to `monitorPort`. */
juce::String buildSlaveCommandLine(const DaemonSettings& settings, uint32_t masterAddress,
                                   uint16_t masterPort, uint16_t monitorPort, bool infoRequest);

} // namespace quelta
