#include "master/MasterConnection.h"
#include "support/DaemonTest.h"

namespace quelta::test {
namespace {

using Types = std::vector<uint32_t>;

constexpr MasterAddress noOwner{};

class DaemonNetworkThreadOwnershipTest : public DaemonTest
{
protected:
    enum class Detail
    {
        off,
        on
    };

    explicit DaemonNetworkThreadOwnershipTest(Detail detail = Detail::off)
    {
        flags::daemonDetail = detail == Detail::on ? 1 : 0;
        startDaemon();
        first = introduce();
        second = introduce();
    }

    ~DaemonNetworkThreadOwnershipTest() override { daemon.reset(); }

    /** Expects the next record to have this type, owner and text. */
    static void expectNext(FakeMaster& master, uint32_t type, const MasterAddress& owner,
                           const std::string& text = {})
    {
        const auto record = master.next();
        ASSERT_TRUE(record);
        EXPECT_EQ(record->type, type);
        EXPECT_EQ(formatAddress(record->owner), formatAddress(owner));
        EXPECT_EQ(record->ownerText, paddedTo32(text));
    }

    /** Starts the slave for the first master and takes all resulting records. */
    void startForFirst()
    {
        startSlaveFor(*first);
        second->nextTypes(1);
    }

    std::unique_ptr<FakeMaster> first;
    std::unique_ptr<FakeMaster> second;
};

TEST_F(DaemonNetworkThreadOwnershipTest, AStartMakesTheRequesterOwnerAndIsBroadcast)
{
    log.clear();
    first->send(startRequest, "render one");
    expectNext(*first, daemonStatus, first->getAddress(), "render one");
    expectNext(*first, startReply, first->getAddress(), "render one");
    expectNext(*second, daemonStatus, first->getAddress(), "render one");
    EXPECT_EQ(getFirstLines(3), (Lines{"received start request from master " + first->getName(),
                                       "starting slave for master " + first->getName(), "\n"}));
}

TEST_F(DaemonNetworkThreadOwnershipTest, TheOwnerIsNotifiedThatTheSlaveRuns)
{
    first->send(startRequest, "render one");
    EXPECT_EQ(first->nextTypes(2), (Types{daemonStatus, startReply}));
    expectNext(*first, slaveRunning, first->getAddress(), "render one");
    EXPECT_TRUE(wasLogged("notifying master " + first->getName() +
                          " that the slave is initialized and running"));
    EXPECT_EQ(second->nextTypes(1), Types{daemonStatus});
    EXPECT_TRUE(second->hasNoRecord());
}

/** It may have waited for the lock while its master was unregistered and detected again. */
TEST_F(DaemonNetworkThreadOwnershipTest, ARequestFromAnUnregisteredConnectionIsDropped)
{
    for (const auto& address : {FakeMaster().getAddress(), first->getAddress()})
    {
        DaemonNetworkThread::MasterConnection forgotten(address, *daemon);
        MasterDaemonMessage request;
        request.type = MasterMessageType::START_REQUEST;
        request.masterAddress = address;
        daemon->handleRequest(request, forgotten);
    }

    first->send(scanRequest);
    expectNext(*first, daemonStatus, noOwner);
    EXPECT_TRUE(second->hasNoRecord());
}

TEST_F(DaemonNetworkThreadOwnershipTest, AStartWhileAnotherOwnsTheSlaveIsRefusedWithTheOwner)
{
    first->send(startRequest, "one");
    EXPECT_EQ(first->nextTypes(2), (Types{daemonStatus, startReply}));
    EXPECT_EQ(second->nextTypes(1), Types{daemonStatus});
    second->send(startRequest, "two");
    expectNext(*second, startReply, first->getAddress(), "one");
}

TEST_F(DaemonNetworkThreadOwnershipTest, AStopFromTheOwnerFreesTheSlaveAndIsBroadcast)
{
    startForFirst();
    log.clear();
    first->send(stopRequest);
    expectNext(*first, daemonStatus, noOwner);
    expectNext(*first, stopReply, noOwner);
    expectNext(*second, daemonStatus, noOwner);
    EXPECT_EQ(getFirstLines(2), (Lines{"received stop request from master " + first->getName(),
                                       "stopping Quelta slave for master " + first->getName()}));
}

TEST_F(DaemonNetworkThreadOwnershipTest, AStopFromAnotherMasterChangesNothing)
{
    startForFirst();
    second->send(stopRequest);
    expectNext(*second, stopReply, first->getAddress());
    first->send(scanRequest);
    expectNext(*first, daemonStatus, first->getAddress());
}

TEST_F(DaemonNetworkThreadOwnershipTest, AStopWithoutASlaveIsOnlyAnswered)
{
    log.clear();
    first->send(stopRequest);
    expectNext(*first, stopReply, noOwner);
    EXPECT_EQ(log.lines(), Lines{"received stop request from master " + first->getName()});
}

TEST_F(DaemonNetworkThreadOwnershipTest, AStopIsJudgedByTheAddressInTheMessage)
{
    startForFirst();
    second->sendFrame(makeRecord(stopRequest, first->getAddress()));
    expectNext(*second, daemonStatus, noOwner);
    expectNext(*second, stopReply, noOwner);
    expectNext(*first, daemonStatus, noOwner);
}

TEST_F(DaemonNetworkThreadOwnershipTest, AStealMakesTheThiefOwnerAndBroadcastsBeforeTheReply)
{
    startForFirst();
    log.clear();
    second->send(stealRequest, "mine");
    expectNext(*second, daemonStatus, second->getAddress(), "mine");
    expectNext(*second, stealReply, second->getAddress(), "mine");
    expectNext(*first, daemonStatus, second->getAddress(), "mine");
    EXPECT_TRUE(second->nextOf(slaveRunning));
    EXPECT_TRUE(wasLogged("received steal request from master " + second->getName()));
    EXPECT_TRUE(wasLogged("stopping Quelta slave for master " + first->getName()));
    EXPECT_TRUE(wasLogged("starting slave for master " + second->getName()));
    EXPECT_TRUE(first->hasNoRecord());
}

TEST_F(DaemonNetworkThreadOwnershipTest, AStopFromThePreviousOwnerHasNoEffectAfterASteal)
{
    startForFirst();
    second->send(stealRequest);
    ASSERT_TRUE(second->nextOf(slaveRunning));
    EXPECT_EQ(first->nextTypes(1), Types{daemonStatus});
    first->send(stopRequest);
    expectNext(*first, stopReply, second->getAddress());
}

TEST_F(DaemonNetworkThreadOwnershipTest, AStealFromTheOwnerChangesNothing)
{
    startForFirst();
    log.clear();
    first->send(stealRequest, "another text");
    expectNext(*first, stealReply, first->getAddress());
    EXPECT_EQ(log.lines(), Lines{"received steal request from master " + first->getName()});
    EXPECT_TRUE(second->hasNoRecord());
}

TEST_F(DaemonNetworkThreadOwnershipTest, AStealOfAFreeSlaveLogsAnErrorAndStartsIt)
{
    restartWith(flags::logPrefix, 1);
    first = introduce();
    log.clear();
    first->send(stealRequest);
    expectNext(*first, daemonStatus, first->getAddress());
    expectNext(*first, stealReply, first->getAddress());
    EXPECT_EQ(getFirstLines(3),
              (Lines{"daemon    : received steal request from master " + first->getName(),
                     "ERROR     : we don't have an Quelta slave running",
                     "daemon    : starting slave for master " + first->getName()}));
    EXPECT_TRUE(first->nextOf(slaveRunning));
}

TEST_F(DaemonNetworkThreadOwnershipTest, TheOwnersTextEndsAtItsFirstNulOrFillsTheField)
{
    const std::string full = "0123456789abcdef0123456789ABCDEF";
    first->send(startRequest, full);
    expectNext(*first, daemonStatus, first->getAddress(), full);
    second->nextTypes(1);
    ASSERT_TRUE(first->nextOf(slaveRunning));
    second->send(stealRequest, std::string("ab\0cd", 5));
    expectNext(*second, daemonStatus, second->getAddress(), "ab");
}

TEST_F(DaemonNetworkThreadOwnershipTest, OnlyTheOwnersScanReportsAFailure)
{
    slave.play("[run]\nconnect\ninfo\nwait 150\nexit 3");
    startForFirst();
    EXPECT_EQ(first->nextTypes(1), Types{slaveFailed});
    EXPECT_TRUE(wasLogged("notifying master " + first->getName() + " that the slave has crashed"));

    first->send(scanRequest);
    expectNext(*first, slaveFailed, first->getAddress());
    second->send(scanRequest);
    expectNext(*second, daemonStatus, first->getAddress());
}

TEST_F(DaemonNetworkThreadOwnershipTest, AScanIsJudgedByTheConnectionNotByTheAddressInTheMessage)
{
    slave.play("[run]\nexit 3");
    first->send(startRequest);
    ASSERT_TRUE(first->nextOf(slaveFailed));
    EXPECT_EQ(second->nextTypes(1), Types{daemonStatus});
    second->sendFrame(makeRecord(scanRequest, first->getAddress()));
    expectNext(*second, daemonStatus, first->getAddress());
    first->sendFrame(makeRecord(scanRequest, second->getAddress()));
    expectNext(*first, slaveFailed, first->getAddress());
}

TEST_F(DaemonNetworkThreadOwnershipTest, AFailedSlaveKeepsItsOwnerUntilTheStop)
{
    slave.play("[run]\nexit 3");
    first->send(startRequest);
    ASSERT_TRUE(first->nextOf(slaveFailed));
    EXPECT_EQ(second->nextTypes(1), Types{daemonStatus});
    second->send(startRequest);
    expectNext(*second, startReply, first->getAddress());
    first->send(stopRequest);
    expectNext(*first, daemonStatus, noOwner);
    expectNext(*first, stopReply, noOwner);
}

TEST_F(DaemonNetworkThreadOwnershipTest, AFailedLaunchIsReportedOnlyByScans)
{
    slave.getFile().deleteFile();
    first->send(startRequest);
    EXPECT_EQ(first->nextTypes(2), (Types{daemonStatus, startReply}));
    ASSERT_TRUE(log.waitForLine("failed to launch Quelta slave: 2"));
    first->send(scanRequest);
    expectNext(*first, slaveFailed, first->getAddress());
}

TEST_F(DaemonNetworkThreadOwnershipTest, LosingTheOwnerForGoodFreesTheSlaveAndIsBroadcast)
{
    startForFirst();
    first->vanish();
    ASSERT_TRUE(log.waitForLine("disconnected from master " + first->getName()));
    tick();
    expectNext(*second, daemonStatus, noOwner);
    EXPECT_TRUE(wasLogged("stopping Quelta slave for master " + first->getName()));
    second->send(startRequest);
    expectNext(*second, daemonStatus, second->getAddress());
}

TEST_F(DaemonNetworkThreadOwnershipTest, AnOwnerThatReconnectsInTimeKeepsTheSlave)
{
    startForFirst();
    first->hangUp();
    ASSERT_TRUE(log.waitForLine("disconnected from master " + first->getName()));
    tick();
    ASSERT_TRUE(first->waitForConnection(2));
    first->send(scanRequest);
    expectNext(*first, daemonStatus, first->getAddress());
}

TEST_F(DaemonNetworkThreadOwnershipTest, ShutdownStopsTheSlaveAndTellsConnectedMasters)
{
    startForFirst();
    log.clear();
    daemon.reset();
    EXPECT_TRUE(wasLogged("stopping slave because we are disconnecting from its master " +
                          first->getName()));
    EXPECT_TRUE(wasLogged("stopping Quelta slave for master " + first->getName()));
    expectNext(*first, daemonStatus, noOwner);

    // The second master is told only if its connection is closed after the owner's.
    if (first->getAddress() < second->getAddress())
        expectNext(*second, daemonStatus, noOwner);
    else
        EXPECT_TRUE(second->hasNoRecord());
}

// An owner with an unusable address

class DaemonNetworkThreadReplacementTest : public DaemonNetworkThreadOwnershipTest
{
protected:
    DaemonNetworkThreadReplacementTest() : DaemonNetworkThreadOwnershipTest(Detail::on) {}

    /** Sends a start request with an address that cannot own the slave. */
    void startForUnusable(const MasterAddress& address)
    {
        first->sendFrame(makeRecord(startRequest, address));
        EXPECT_EQ(first->nextTypes(2), (Types{daemonStatus, startReply}));
    }
};

TEST_F(DaemonNetworkThreadReplacementTest, ASlaveOfAnUnusableOwnerIsReplacedWithoutBeingStopped)
{
    startForUnusable({0, 21000});
    ASSERT_TRUE(log.waitForLine("received heartbeat message 'SLAVE_STATUS' from slave"));
    log.clear();
    first->nextOf(slaveRunning);
    startForUnusable({0x7F000001, 0});
    EXPECT_TRUE(wasLogged("already running slave"));
    EXPECT_FALSE(wasLogged("stopping Quelta slave for master 0.0.0.0:21000"));

    // The replaced slave keeps sending heart beats while the new one reports its information.
    EXPECT_TRUE(log.waitForLine("slave has version 4000000 and provides 1 GPU(s)"));
    log.clear();
    EXPECT_TRUE(log.waitForLine("received heartbeat message 'SLAVE_STATUS' from slave"));
}

TEST_F(DaemonNetworkThreadReplacementTest, AReplacedSlaveNotifiesNobody)
{
    slave.play("[run]\nconnect\nauthenticating\nwait 400\ninfo\nwait 300\nexit 3");
    startForUnusable({0, 1});
    ASSERT_TRUE(log.waitForLine("started to monitor slave")); // it has read its scenario
    slave.play(wellBehaved);
    startForUnusable({0, 1});
    EXPECT_EQ(first->nextTypes(1), Types{slaveRunning});
    ASSERT_TRUE(log.waitForLine("slave crashed or was stopped via CTRL-C"));
    first->send(scanRequest);
    expectNext(*first, daemonStatus, {0, 1});
}

TEST_F(DaemonNetworkThreadReplacementTest, ShutdownStopsReplacedSlavesInParallel)
{
    slave.play("[run]\non-stop exit-after 500\nconnect\ninfo\nwait 400\nbeat 50");

    for (int i = 0; i < 5; ++i)
    {
        startForUnusable({0, 1});
        ASSERT_TRUE(first->nextOf(slaveRunning));
    }

    // 500 ms each, twice: the current slave is stopped first, then the replaced ones in parallel.
    EXPECT_LT(timeOf([this] { daemon.reset(); }), 2'000u);
}

TEST_F(DaemonNetworkThreadReplacementTest, TheOldestOfMoreThanEightReplacedSlavesIsStopped)
{
    for (int i = 0; i < 10; ++i)
    {
        startForUnusable({0, 1});
        ASSERT_TRUE(first->nextOf(slaveRunning));
    }

    EXPECT_TRUE(log.waitForLine("stopped monitoring slave"));
    const auto lines = log.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "stopped monitoring slave"), 1);
}

} // namespace
} // namespace quelta::test
