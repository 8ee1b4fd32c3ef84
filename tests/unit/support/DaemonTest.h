// The base of tests of the DaemonNetworkThread: a daemon with the stand-in slave, and masters to
// introduce to it. The test's thread is the message thread and ticks by hand.
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
    /** The pause lets even a busy machine see that the slave is initialised before it runs. */
    static constexpr auto wellBehaved = "[run]\nconnect\nauthenticating\ninfo\nwait 400\nbeat 50\n";

    DaemonTest()
    {
        settings.slaveExecutable = slave.getFile();
        settings.slaveAlias = "node7";
        settings.daemonPort = findFreeBeaconPort();
    }

    /** A slave that is stopped before it has connected costs the last limit if it never does. */
    void startDaemon(const SlaveTimeLimits& limits = {10'000, 4'000, 10'000, 2'000})
    {
        daemon = std::make_unique<DaemonNetworkThread>(settings, 513, 2, lastMonitorPort, limits);

        const auto line =
            "start listening for masters on port " + std::to_string(settings.daemonPort);

        // The discovery thread logs it whenever it comes to it.
        if (flags::daemon != 0)
        {
            EXPECT_TRUE(log.waitForLine((flags::logPrefix != 0 ? "daemon    : " : "") + line));
        }
    }

    /** Nobody may log while a flag is written. */
    void restartWith(int32_t& flag, int32_t value)
    {
        daemon.reset();
        flag = value;
        log.clear();
        startDaemon();
    }

    /** A master that the daemon has heard of and connected to. */
    std::unique_ptr<FakeMaster> introduce()
    {
        auto master = std::make_unique<FakeMaster>();
        daemon->masterDetected(master->getAddress());
        tick();
        EXPECT_TRUE(master->waitForConnection());
        return master;
    }

    void tick() { daemon->timerCallback(); }

    /** Has the slave started for `master` and waits until it runs. */
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
