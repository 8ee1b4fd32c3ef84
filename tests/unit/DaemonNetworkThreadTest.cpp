#include "master/DaemonNetworkThread.h"

#include <algorithm>
#include <thread>

#include "platform/Paths.h"
#include "support/DaemonTest.h"
#include "support/Hex.h"
#include "support/LogGate.h"
#include "support/NoMoreThreads.h"

namespace quelta::test {
namespace {

class DaemonNetworkThreadTest : public DaemonTest
{
protected:
    DaemonNetworkThreadTest() { startDaemon(); }

    /** How often a line has been logged. */
    auto countLines(const std::string& line) const
    {
        const auto lines = log.lines();
        return std::count(lines.begin(), lines.end(), line);
    }
};

TEST_F(DaemonNetworkThreadTest, ADetectedMasterIsConnectedAtTheNextTick)
{
    FakeMaster master;
    daemon->masterDetected(master.getAddress());
    EXPECT_TRUE(wasLogged("detected new master on address " + master.getName()));
    EXPECT_FALSE(wasLogged("connected to master " + master.getName()));
    tick();
    EXPECT_TRUE(master.waitForConnection());
    EXPECT_TRUE(wasLogged("connected to master " + master.getName()));
}

TEST_F(DaemonNetworkThreadTest, AMasterIsRegisteredOnceForManyBeacons)
{
    const auto master = introduce();
    daemon->masterDetected(master->getAddress());
    tick();
    daemon->masterDetected(master->getAddress());
    tick();
    EXPECT_EQ(countLines("detected new master on address " + master->getName()), 1);
    EXPECT_EQ(countLines("connected to master " + master->getName()), 1);
}

TEST_F(DaemonNetworkThreadTest, MastersAreConnectedInTheOrderOfTheirAddresses)
{
    std::vector<std::unique_ptr<FakeMaster>> masters(5);
    std::generate(masters.begin(), masters.end(), [] { return std::make_unique<FakeMaster>(); });
    std::sort(masters.begin(), masters.end(), [](const auto& a, const auto& b) {
        return a->getAddress().port > b->getAddress().port;
    });

    for (const auto& master : masters)
        daemon->masterDetected(master->getAddress());

    log.clear();
    tick();

    Lines expected;

    for (auto master = masters.rbegin(); master != masters.rend(); ++master)
        expected.push_back("connected to master " + (*master)->getName());

    EXPECT_EQ(log.lines(), expected);
}

TEST_F(DaemonNetworkThreadTest, ABeaconLeadsToAConnection)
{
    FakeMaster master;
    BeaconSender sender(settings.daemonPort);

    ASSERT_TRUE(pollUntil([this, &sender, &master] {
        sender.send(makeRecord(scanRequest, master.getAddress()));
        return wasLogged("detected new master on address " + master.getName());
    }));
    tick();
    EXPECT_TRUE(master.waitForConnection());
}

TEST_F(DaemonNetworkThreadTest, WithoutAnOwnerARecordHasTheseBytes)
{
    const auto master = introduce();
    master->send(scanRequest);
    const auto reply = master->next();
    ASSERT_TRUE(reply);
    EXPECT_EQ(toHex(reply->bytes),
              "41 43 23 00 08 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "6E 6F 64 65 37 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "02 00 00 00 01 02 00 00 ");
}

TEST_F(DaemonNetworkThreadTest, AScanIsNotLogged)
{
    const auto master = introduce();
    log.clear();
    master->send(scanRequest);
    ASSERT_TRUE(master->next());
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(DaemonNetworkThreadTest, AScanIsLoggedInDetail)
{
    restartWith(flags::daemonDetail, 1);
    const auto master = introduce();
    log.clear();
    master->send(scanRequest);
    ASSERT_TRUE(master->next());
    EXPECT_EQ(log.lines(), Lines{"received scan request from master " + master->getName()});
}

TEST_F(DaemonNetworkThreadTest, UnknownRequestTypesAreAnsweredAsUnexpected)
{
    restartWith(flags::logPrefix, 1);
    const auto master = introduce();

    for (const uint32_t type : {1u, 3u, 5u, 6u, 7u, 8u, 9u, 10u, 12u})
    {
        log.clear();
        master->send(type);
        EXPECT_EQ(master->nextTypes(1), std::vector<uint32_t>{unexpectedRequest});
        EXPECT_EQ(log.lines(),
                  Lines{"ERROR     : unexpected message type (" + std::to_string(type) + ")"});
    }
}

TEST_F(DaemonNetworkThreadTest, AMasterIsReconnectedAfterItsConnectionBreaks)
{
    const auto master = introduce();
    master->hangUp();
    ASSERT_TRUE(log.waitForLine("disconnected from master " + master->getName()));
    tick();
    EXPECT_TRUE(master->waitForConnection(2));
    EXPECT_EQ(countLines("detected new master on address " + master->getName()), 1);
}

TEST_F(DaemonNetworkThreadTest, AnUnreachableMasterIsUnregisteredUntilItsNextBeacon)
{
    const auto master = introduce();
    master->vanish();
    ASSERT_TRUE(log.waitForLine("disconnected from master " + master->getName()));
    tick();
    daemon->masterDetected(master->getAddress());
    EXPECT_EQ(countLines("detected new master on address " + master->getName()), 2);
}

TEST_F(DaemonNetworkThreadTest, AFailedConnectionIsLoggedWithTheReason)
{
    FakeMaster master;
    master.vanish();
    daemon->masterDetected(master.getAddress());
    log.clear();
    tick();
    ASSERT_EQ(log.lines().size(), 1u);
    const auto line = log.lines()[0];
    const auto begin = "could not connect to master " + master.getName() + ": ";

    if (platform::absolutePathsHaveRoot())
        EXPECT_TRUE(line.starts_with(begin) && line.ends_with(" (10060)"))
            << line; // refused, but JUCE waits for the whole time-out
    else
        EXPECT_EQ(line, begin + "Connection refused (111)");
}

TEST_F(DaemonNetworkThreadTest, ANotificationWithoutAnOwnerIsAnError)
{
    restartWith(flags::logPrefix, 1);
    log.clear();
    daemon->notifySlaveRunning();
    daemon->notifySlaveFailed();
    EXPECT_EQ(log.lines(),
              (Lines{"ERROR     : slave is initialized, although no master is bound to it?!?",
                     "ERROR     : detected a slave crash, although no master is bound to it?!?"}));
}

TEST_F(DaemonNetworkThreadTest, ShutdownIsLoggedWithTheNumberOfMasters)
{
    const auto first = introduce();
    const auto second = introduce();
    log.clear();
    daemon.reset();
    EXPECT_EQ(log.lines().at(0), "closing down all existing master connections (2)...");
    EXPECT_TRUE(first->waitForDisconnection());
    EXPECT_TRUE(second->waitForDisconnection());
}

TEST_F(DaemonNetworkThreadTest, ShutdownIsLoggedWithoutAnyFlag)
{
    restartWith(flags::daemon, 0);
    log.clear();
    daemon.reset();
    EXPECT_EQ(log.lines(), Lines{"closing down all existing master connections (0)..."});
}

/** The daemon keeps running without discovery, so the log must say why, whatever the flags. */
TEST_F(DaemonNetworkThreadTest, ARefusedDiscoveryThreadIsAnError)
{
    if (!NoMoreThreads::arePossible())
        GTEST_SKIP() << "threads cannot be made scarce here";

    daemon.reset();
    flags::daemon = 0;
    flags::logPrefix = 1;
    log.clear();

    {
        const NoMoreThreads scarcity;
        daemon = std::make_unique<DaemonNetworkThread>(settings, 513, 2, lastMonitorPort);
    }

    EXPECT_EQ(log.lines(),
              Lines{"ERROR     : the system refused the thread that listens for masters"});
}

TEST_F(DaemonNetworkThreadTest, ItsSlaveReportsToTheRememberedPort)
{
    const auto port = [] {
        juce::StreamingSocket free;
        free.createListener(0, {});
        return free.getBoundPort();
    }();
    lastMonitorPort = static_cast<uint16_t>(port);
    const auto master = introduce();
    startSlaveFor(*master);
    EXPECT_TRUE(
        wasLogged("using free port " + std::to_string(port) + " to communicate with slave"));
}

TEST_F(DaemonNetworkThreadTest, ShutdownWithoutASlaveTakesLessThanASecond)
{
    std::vector<std::unique_ptr<FakeMaster>> masters;

    for (int i = 0; i < 10; ++i)
        masters.push_back(introduce());

    EXPECT_LT(timeOf([this] { daemon.reset(); }), 1'000u);
}

// The connection itself

TEST_F(DaemonNetworkThreadTest, AMalformedRecordIsLoggedAndDroppedAndTheConnectionStays)
{
    const auto master = introduce();
    auto foreign = makeRecord(startRequest, master->getAddress());
    foreign[0] = 0x40;
    log.clear();
    master->sendFrame(foreign);
    master->sendFrame(Bytes(91));
    master->sendFrame(Bytes(93));
    master->sendFrame(makeRecord(13, master->getAddress()));
    master->send(scanRequest);
    EXPECT_EQ(master->nextTypes(1), std::vector<uint32_t>{daemonStatus});
    EXPECT_EQ(log.lines(), (Lines{"master daemon message has invalid magic",
                                  "master daemon message has invalid size (91)",
                                  "master daemon message has invalid size (93)",
                                  "master daemon message had invalid type (13)"}));
}

TEST_F(DaemonNetworkThreadTest, AnEmptyFrameIsDropped)
{
    const auto master = introduce();
    log.clear();
    master->sendFrame({});
    master->send(scanRequest);
    EXPECT_EQ(master->nextTypes(1), std::vector<uint32_t>{daemonStatus});
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(DaemonNetworkThreadTest, ARequestWaitsWhileAnotherMasterIsBeingConnected)
{
    const auto first = introduce();
    FakeMaster second;
    daemon->masterDetected(second.getAddress());
    LogGate secondIsConnected("connected to master " + second.getName());
    std::thread ticking([this] { tick(); });
    EXPECT_TRUE(secondIsConnected.waitUntilReached());
    first->send(scanRequest);
    allowArrivalAtLock(); // a request that did not wait would be answered meanwhile
    EXPECT_TRUE(first->hasNoRecord());
    secondIsConnected.open();
    EXPECT_EQ(first->nextTypes(1), std::vector<uint32_t>{daemonStatus});
    ticking.join();
}

TEST_F(DaemonNetworkThreadTest, ALostConnectionIsLogged)
{
    const auto master = introduce();
    log.clear();
    master->hangUp();
    EXPECT_TRUE(log.waitForLine("disconnected from master " + master->getName()));
    EXPECT_EQ(log.lines().size(), 1u);
}

} // namespace
} // namespace quelta::test
