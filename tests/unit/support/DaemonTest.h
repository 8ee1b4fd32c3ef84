// Base of the DaemonNetworkThread tests: a daemon with the stand-in slave, and masters that connect
// to it. The test's thread acts as the message thread and calls the tick itself.
#pragma once

#include <memory>

#include "BeaconSender.h"
#include "FakeMaster.h"
#include "StandinSlave.h"
#include "ThreadedTest.h"
#include "master/DaemonNetworkThread.h"

namespace quelta::test {

class DaemonTest : public ThreadedTest
{
protected:
    /** The pause is long enough for a poll to see the slave initialised, even on a busy machine. */
    static constexpr auto wellBehaved = "[run]\nconnect\nauthenticating\ninfo\nwait 400\nbeat 50\n";

    DaemonTest()
    {
        settings.slaveExecutable = slave.getFile();
        settings.slaveAlias = "node7";
        settings.daemonPort = findFreeBeaconPort();
    }

    /** The graceful stop is shorter than by default: stopping a slave that never connects takes all
        of it. */
    void startDaemon(const SlaveTimeLimits& limits = {.gracefulStop = 2'000})
    {
        daemon = std::make_unique<DaemonNetworkThread>(settings, 513, 2, lastMonitorPort, limits);

        const auto line =
            "start listening for masters on port " + std::to_string(settings.daemonPort);

        // Logged by the discovery thread once it runs.
        if (flags::daemon != 0)
        {
            EXPECT_TRUE(log.waitForLine((flags::logPrefix != 0 ? "daemon    : " : "") + line));
        }
    }

    /** Restarts the daemon around the change, since no thread may log while a flag is written. */
    void restartWith(int32_t& flag, int32_t value)
    {
        daemon.reset();
        flag = value;
        log.clear();
        startDaemon();
    }

    /** A master that the daemon has detected and connected to. */
    std::unique_ptr<FakeMaster> introduce()
    {
        auto master = std::make_unique<FakeMaster>();
        daemon->masterDetected(master->getAddress());
        tick();
        EXPECT_TRUE(master->waitForConnection());
        return master;
    }

    void tick() { daemon->timerCallback(); }

    /** Sends a start request and waits until the slave runs. */
    static void startSlaveFor(FakeMaster& master)
    {
        master.send(startRequest);
        EXPECT_TRUE(master.nextOf(slaveRunning));
    }

    static std::string paddedTo32(std::string text)
    {
        text.resize(32);
        return text;
    }

    StandinSlave slave{wellBehaved};
    DaemonSettings settings;
    MonitorPort lastMonitorPort{0};
    std::unique_ptr<DaemonNetworkThread> daemon;
};

} // namespace quelta::test
