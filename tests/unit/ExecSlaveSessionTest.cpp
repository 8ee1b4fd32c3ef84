#include "exec_slave/Session.h"

#include <gtest/gtest.h>

#include "slave/SlaveMonitor.h"
#include "support/Children.h"
#include "support/Descriptors.h"
#include "support/StandardStreamCapture.h"
#include "support/ThreadedTest.h"
#include "support/Wine.h"

namespace quelta::execslave {
namespace {

using namespace std::chrono_literals;

std::string workerPath()
{
    const auto self = juce::File::getSpecialLocation(juce::File::currentExecutableFile);
    return self.getSiblingFile("quelta_test_worker")
        .withFileExtension(self.getFileExtension())
        .getFullPathName()
        .toStdString();
}

/** Runs sessions in this process, for the slave monitor of a daemon. */
class ExecSlaveSessionTest : public test::ThreadedTest
{
protected:
    ExecSlaveSessionTest()
    {
        setup.version = 513;
        setup.numGpus = 2;
        setup.configuration.ready.after = 1ms;
        setup.configuration.command = {workerPath(), "hang"};

        if (test::runsUnderWine())
            setup.configuration.stop.grace = 100ms; // it delivers no Ctrl-Break
    }

    /** Starts the program and stops it as soon as the monitor knows it as initialised. */
    int runAndStop()
    {
        SlaveMonitor monitor(5000, lastMonitorPort);
        SessionInbox inbox;
        MonitorLink link(inbox);
        EXPECT_EQ(link.open(monitor.getPort()), "");
        OutputWriter writer(setup.configuration.output);
        int status = -1;

        std::thread session([&] { status = Session(setup, link, inbox, writer).run(); });
        EXPECT_TRUE(pollUntil([&] { return getStatus(monitor) == STATUS_INITIALIZED; }));
        EXPECT_EQ(monitor.getSlaveVersion(), 513u);
        EXPECT_EQ(monitor.getNumGpus(), 2u);
        monitor.sendStopMessage();
        session.join();
        return status;
    }

    static SlaveStatus getStatus(const SlaveMonitor& monitor)
    {
        SlaveStatus status = STATUS_STARTING;
        uint32_t silence = 0;
        monitor.getStatus(status, silence);
        return status;
    }

    SlaveSetup setup;
    MonitorPort lastMonitorPort{0};
};

TEST_F(ExecSlaveSessionTest, ManyRunsLeaveNoDescriptorThreadOrProcess)
{
    const test::StandardStreamCapture output(stdout);
    const auto threads = [] {
        return test::processesAreShownAsFiles()
                   ? test::getStatusValue(juce::File("/proc/self"), "Threads")
                   : std::string();
    };
    runAndStop(); // what is made once in the life of the process
    const int descriptors = test::descriptorsCanBeCounted() ? test::countDescriptors() : 0;
    const auto threadsBefore = threads();
    const auto childrenBefore = test::getChildren();

    const int rounds = test::runsUnderWine() ? 20 : 200; // a process starts slowly there

    for (int round = 0; round < rounds; ++round)
        runAndStop();

    EXPECT_TRUE(pollUntil([&] { return threads() == threadsBefore; })) << threads();
    EXPECT_EQ(test::getChildren(), childrenBefore);

    if (test::descriptorsCanBeCounted())
    {
        EXPECT_EQ(test::countDescriptors(), descriptors);
    }
}

TEST_F(ExecSlaveSessionTest, TheProgramsStatusIsReturned)
{
    if (test::runsUnderWine())
        GTEST_SKIP() << "Wine delivers no Ctrl-Break";

    const test::StandardStreamCapture output(stdout);
    setup.configuration.command = {workerPath(), "on-stop", "0", "print", "online", "hang"};
    setup.configuration.ready.line = "^online$";
    EXPECT_EQ(runAndStop(), 0);
}

TEST_F(ExecSlaveSessionTest, APortWithoutADaemonIsToldInTheWordsOfTheSystem)
{
    SessionInbox inbox;
    MonitorLink link(inbox);
    const auto error = link.open(1); // of a service that is long out of use
    const std::string begin = "cannot connect to the daemon on 127.0.0.1:1: ";
    EXPECT_EQ(error.substr(0, begin.size()), begin);
    EXPECT_GT(error.size(), begin.size());
}

TEST_F(ExecSlaveSessionTest, TheLossOfTheDaemonIsReported)
{
    auto monitor = std::make_unique<SlaveMonitor>(5000, lastMonitorPort);
    SessionInbox inbox;
    MonitorLink link(inbox);
    ASSERT_EQ(link.open(monitor->getPort()), "");
    EXPECT_TRUE(pollUntil([&] { return getStatus(*monitor) == STATUS_AUTHENTICATING; }));
    EXPECT_FALSE(inbox.look().stop);
    monitor.reset();
    EXPECT_TRUE(pollUntil([&] { return inbox.look().stop.has_value(); }));
    EXPECT_EQ(inbox.look().stop, StopReason::daemonLost);
}

} // namespace
} // namespace quelta::execslave
