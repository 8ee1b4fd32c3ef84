#include "slave/SlaveMonitor.h"

#include "support/Descriptors.h"
#include "support/SlaveVoice.h"
#include "support/ThreadedTest.h"

namespace quelta::test {
namespace {

/** A TCP port that was free a moment ago, below 65000; 0 if none was found. */
uint16_t findFreePort()
{
    for (int attempt = 0; attempt < 1'000; ++attempt)
    {
        juce::StreamingSocket socket;
        socket.createListener(0, {});

        if (const auto port = socket.getBoundPort(); port > 1024 && port < 65000)
            return static_cast<uint16_t>(port);
    }

    return 0;
}

class SlaveMonitorPortTest : public ThreadedTest
{
protected:
    MonitorPort lastMonitorPort{0};
};

TEST_F(SlaveMonitorPortTest, TheFirstSearchBeginsAfterTheDaemonsPort)
{
    EXPECT_EQ(SlaveMonitor::getFirstPort(0, 5000), 5001);
    EXPECT_EQ(SlaveMonitor::getFirstPort(0, 1024), 1025);
    EXPECT_EQ(SlaveMonitor::getFirstPort(0, 65535), 0);
}

TEST_F(SlaveMonitorPortTest, TheFirstSearchAvoidsPrivilegedPorts)
{
    EXPECT_EQ(SlaveMonitor::getFirstPort(0, 80), 1024);
    EXPECT_EQ(SlaveMonitor::getFirstPort(0, 1023), 1024);
}

TEST_F(SlaveMonitorPortTest, ALaterSearchBeginsWithThePortOfTheLastMonitor)
{
    EXPECT_EQ(SlaveMonitor::getFirstPort(5007, 5000), 5007);
    EXPECT_EQ(SlaveMonitor::getFirstPort(1, 80), 1);
}

TEST_F(SlaveMonitorPortTest, PortsAreTriedInAscendingOrder)
{
    EXPECT_EQ(SlaveMonitor::getNextPort(5001, 5000), 5002);
    EXPECT_EQ(SlaveMonitor::getNextPort(0, 5000), 1);
}

TEST_F(SlaveMonitorPortTest, TheHighestPortIsFollowedByTheLowest)
{
    EXPECT_EQ(SlaveMonitor::getNextPort(65535, 5000), 0);
}

TEST_F(SlaveMonitorPortTest, TheDaemonsPortIsSkipped)
{
    EXPECT_EQ(SlaveMonitor::getNextPort(5999, 6000), 6001);
    EXPECT_EQ(SlaveMonitor::getNextPort(65534, 65535), 0);
    EXPECT_EQ(SlaveMonitor::getNextPort(65535, 0), 1);
}

TEST_F(SlaveMonitorPortTest, ASearchTriesEveryPortButTheDaemonsOnce)
{
    uint16_t candidate = 5001;
    int tries = 0;

    do
    {
        ASSERT_NE(candidate, 5000);
        candidate = SlaveMonitor::getNextPort(candidate, 5000);
        ++tries;
    } while (candidate != 5001 && tries < 70'000);

    EXPECT_EQ(tries, 65535);
}

TEST_F(SlaveMonitorPortTest, ASecondMonitorGetsThePortOfTheFirst)
{
    uint16_t first = 0;

    {
        const auto port = findFreePort();
        juce::StreamingSocket taken;
        taken.createListener(port, {});
        first = SlaveMonitor(static_cast<uint16_t>(port - 1), lastMonitorPort).getPort();
        EXPECT_GT(first, port);
        EXPECT_EQ(lastMonitorPort, first);
    }

    EXPECT_EQ(SlaveMonitor(6000, lastMonitorPort).getPort(), first);
}

TEST_F(SlaveMonitorPortTest, APortInUseIsSkipped)
{
    const SlaveMonitor first(5000, lastMonitorPort);
    const SlaveMonitor second(5000, lastMonitorPort);
    EXPECT_GT(second.getPort(), first.getPort());
}

TEST_F(SlaveMonitorPortTest, TheDaemonsPortIsSkippedEvenIfItIsFree)
{
    const SlaveMonitor first(5000, lastMonitorPort);
    const auto daemonPort = static_cast<uint16_t>(first.getPort() + 1);
    EXPECT_GT(SlaveMonitor(daemonPort, lastMonitorPort).getPort(), daemonPort);
}

TEST_F(SlaveMonitorPortTest, TheEndOfAMonitorClosesTheConnectionAndFreesThePort)
{
    auto monitor = std::make_unique<SlaveMonitor>(uint16_t{5000}, lastMonitorPort);
    const auto port = monitor->getPort();
    SlaveVoice slave(port);
    ASSERT_TRUE(log.waitForLine("started to monitor slave"));
    log.clear();
    monitor.reset();
    EXPECT_TRUE(slave.waitUntilClosed());
    EXPECT_EQ(log.lines(), Lines{}); // closing a connection from this side is not logged

    juce::StreamingSocket listener;
    EXPECT_TRUE(listener.createListener(port, {}));
}

TEST_F(SlaveMonitorPortTest, MonitorsLeaveNoDescriptorBehind)
{
    if (!descriptorsCanBeCounted())
        GTEST_SKIP() << "the system does not show a process's descriptors as files";

    SlaveMonitor(5000, lastMonitorPort).getPort();
    const auto before = countDescriptors();

    for (int round = 0; round < 50; ++round)
    {
        const SlaveMonitor monitor(5000, lastMonitorPort);
        const SlaveVoice slave(monitor.getPort());
        const SlaveVoice stranger(monitor.getPort());
    }

    EXPECT_EQ(countDescriptors(), before);
}

TEST_F(SlaveMonitorPortTest, NotFindingAFreePortIsAnError)
{
    if (!descriptorsCanBeCounted())
        GTEST_SKIP() << "this system has no limit on descriptors";

    flags::logPrefix = 1;
    const NoMoreDescriptors scarcity;
    EXPECT_EQ(SlaveMonitor(5000, lastMonitorPort).getPort(), 0);
    EXPECT_EQ(log.lines(), Lines{"ERROR     : could not find a free socket to monitor slave"});
}

TEST_F(SlaveMonitorPortTest, TheFirstPortTriedIsTheOneBehindTheDaemons)
{
    const auto port = findFreePort();
    EXPECT_EQ(SlaveMonitor(static_cast<uint16_t>(port - 1), lastMonitorPort).getPort(), port);
}

TEST_F(SlaveMonitorPortTest, IfThatIsTakenTheNextOneIsTried)
{
    const auto port = findFreePort();
    juce::StreamingSocket taken;
    taken.createListener(port, {});
    EXPECT_GT(SlaveMonitor(static_cast<uint16_t>(port - 1), lastMonitorPort).getPort(), port);
}

/** The socket layer takes number 0 as a wish for any port, so a listener is there that no slave is
    told of. */
TEST_F(SlaveMonitorPortTest, BehindTheHighestPortThereIsNoneAndTheNextMonitorBeginsAnew)
{
    const SlaveMonitor without(65535, lastMonitorPort);
    EXPECT_EQ(without.getPort(), 0);
    EXPECT_GT(without.getBoundPort(), 0);
    EXPECT_EQ(lastMonitorPort, 0);
    EXPECT_EQ(log.lines(), (Lines{"using free port 0 to communicate with slave",
                                  "could not find a free socket to monitor slave"}));

    const auto port = findFreePort();
    EXPECT_EQ(SlaveMonitor(static_cast<uint16_t>(port - 1), lastMonitorPort).getPort(), port);
}

/** Number 0 follows, which the socket layer takes as a wish for any port. */
TEST_F(SlaveMonitorPortTest, AfterTheHighestPortTheSearchGoesOnAtZero)
{
    juce::StreamingSocket taken;
    taken.createListener(65535, {}); // fails if another program holds the port, which is as good
    const SlaveMonitor wrapped(65534, lastMonitorPort);
    EXPECT_EQ(wrapped.getPort(), 0);
    EXPECT_GT(wrapped.getBoundPort(), 0);
    EXPECT_EQ(log.lines(), (Lines{"using free port 0 to communicate with slave",
                                  "could not find a free socket to monitor slave"}));
}

} // namespace
} // namespace quelta::test
