#include "app/SlaveProcess.h"

#include <optional>

#include "log/Log.h"
#include "platform/AwakeClock.h"
#include "platform/ChildProcess.h"
#include "platform/KeepAwake.h"
#include "slave/SlaveMonitor.h"
#include "util/StopDeadline.h"
#include "util/Timing.h"

namespace quelta {

namespace {

const char* describe(SlaveHang hang)
{
    switch (hang)
    {
        case SlaveHang::duringStartup:
            return "detected that slave is hanging during startup -> stopping slave";
        case SlaveHang::afterInitialisation:
            return "detected that slave is hanging after initialization -> stopping slave";
        case SlaveHang::heartBeatStopped:
            return "detected that heart beat of slave stopped -> stopping slave";
        case SlaveHang::none:
            break;
    }

    return "";
}

} // namespace

SlaveProcess::SlaveProcess(uint32_t address, uint16_t port, const DaemonSettings& daemonSettings,
                           bool isInfoRequest, SlaveProcessOwner* processOwner,
                           MonitorPort& monitorPort, const SlaveTimeLimits& timeLimits)
    : Thread("SlaveProcess"),
      masterAddress(address),
      masterPort(port),
      settings(daemonSettings),
      infoRequest(isInfoRequest),
      owner(processOwner),
      lastMonitorPort(monitorPort),
      limits(timeLimits)
{
    logUnprefixed("\n");

    if (!startThread())
    {
        failed = true;
        logError("the system refused the thread that runs the slave");
    }
}

SlaveProcess::~SlaveProcess()
{
    stopThread(-1); // after a timeout JUCE would kill the thread by force
}

void SlaveProcess::run()
{
    SlaveMonitor monitor(settings.daemonPort, lastMonitorPort);
    platform::ChildProcess slave;

    if (!launchSlave(slave, monitor))
        return;

    std::optional<platform::KeepAwake> keepAwake;

    if (!infoRequest)
        keepAwake.emplace();

    const auto step = watch(slave, monitor);
    slaveVersion = monitor.getSlaveVersion();
    numProvidedGpus = monitor.getNumGpus();
    conclude(slave, monitor, step);
}

bool SlaveProcess::launchSlave(platform::ChildProcess& slave, const SlaveMonitor& monitor)
{
    const auto commandLine =
        buildSlaveCommandLine(settings, masterAddress, masterPort, monitor.getPort(), infoRequest);
    const auto error = slave.launch(settings.slaveExecutable, commandLine);

    if (error == 0)
    {
        if (const auto jobError = slave.getJobError(); jobError != 0)
            logError(
                "cannot assign the slave to a job (error %d): it will survive if the daemon is "
                "killed",
                jobError);

        QUELTA_LOG_DAEMON_DETAIL(
            "launched slave process %u, path: %s, command line: %s", slave.getId(),
            settings.slaveExecutable.getFullPathName().toRawUTF8(), commandLine.toRawUTF8());
        return true;
    }

    failed = true;
    logError("failed to launch Quelta slave: %d", error);
    return false;
}

/** Returns once the slave has exited or must be stopped. */
SlaveNextStep SlaveProcess::watch(platform::ChildProcess& slave, const SlaveMonitor& monitor)
{
    bool initialisedSeen = false;

    while (!threadShouldExit())
    {
        sleep(timing::slavePollMs);
        const auto verdict = judgeSlave(observe(slave, monitor), limits);

        if (verdict.hang != SlaveHang::none)
        {
            failed = true;
            logUnprefixed("%s", describe(verdict.hang));
        }

        if (verdict.initialised && !initialisedSeen)
        {
            initialisedSeen = true;

            if (mustNotifyOwner())
                owner->notifySlaveRunning();
        }

        if (verdict.nextStep != SlaveNextStep::keepWatching)
            return verdict.nextStep;
    }

    return SlaveNextStep::stop;
}

/** Reads the status after the exit state, so that the last message of a slave that has exited still
    counts. */
SlaveObservation SlaveProcess::observe(platform::ChildProcess& slave, const SlaveMonitor& monitor)
{
    SlaveObservation seen;
    seen.running = slave.isRunning();
    monitor.getStatus(seen.status, seen.millisecondsSinceLastMessage);
    seen.askedToStop = threadShouldExit();
    seen.infoRequest = infoRequest;
    return seen;
}

void SlaveProcess::conclude(platform::ChildProcess& slave, SlaveMonitor& monitor,
                            SlaveNextStep step)
{
    if (step == SlaveNextStep::crashed)
    {
        failed = true;
        logUnprefixed("slave crashed or was stopped via CTRL-C");
    }

    if (step == SlaveNextStep::stop && failed)
        QUELTA_LOG_DAEMON_DETAIL("reason for the stop: the slave hangs");

    const bool stillRunning = step == SlaveNextStep::stop && !stopGracefully(slave, monitor);

    if (failed && mustNotifyOwner())
        owner->notifySlaveFailed();

    if (stillRunning)
    {
        logUnprefixed("slave didn't stop gracefully, killing process by force");
        slave.kill();
    }

    if (slave.isRunning())
        QUELTA_LOG_DAEMON_DETAIL("slave process %u has not ended yet", slave.getId());
    else
        QUELTA_LOG_DAEMON_DETAIL("slave process %u ended with %s", slave.getId(),
                                 slave.describeEnd().c_str());
}

/** Sends the stop message and waits for the slave to exit. Returns false on timeout. */
bool SlaveProcess::stopGracefully(platform::ChildProcess& slave, SlaveMonitor& monitor)
{
    monitor.sendStopMessage();
    const auto asked = platform::getAwakeMilliseconds();

    for (;;)
    {
        sleep(timing::slavePollMs);

        if (!slave.isRunning())
            return true;

        if (platform::getAwakeMilliseconds() - asked >= limits.gracefulStop ||
            hasStopDeadlinePassed())
            return false;
    }
}

} // namespace quelta
