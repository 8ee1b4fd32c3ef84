// The log lines about requests: the requester, refusals and the reasons for stopping a slave.
#include <algorithm>

#include "support/DaemonTest.h"

namespace quelta::test {
namespace {

class RequestLinesTest : public DaemonTest
{
protected:
    RequestLinesTest()
    {
        flags::daemonDetail = 1;
        startDaemon();
        first = introduce();
        second = introduce();
    }

    ~RequestLinesTest() override { daemon.reset(); }

    /** The lines with a reason or a refusal. */
    Lines getReasons() const
    {
        Lines reasons;

        for (const auto& line : log.lines())
            if (line.starts_with("reason for the stop: ") || line.starts_with("refused "))
                reasons.push_back(line);

        return reasons;
    }

    std::unique_ptr<FakeMaster> first;
    std::unique_ptr<FakeMaster> second;
};

TEST_F(RequestLinesTest, EveryRequestIsLoggedWithTheAddressInItsMessage)
{
    const MasterAddress claimed{0x0A000005, 21000};

    for (const auto& [type, name] :
         {std::pair{scanRequest, "scan"}, std::pair{startRequest, "start"},
          std::pair{stealRequest, "steal"}, std::pair{stopRequest, "stop"}})
    {
        first->sendFrame(makeRecord(type, claimed));
        EXPECT_TRUE(log.waitForLine(std::string("received ") + name +
                                    " request from master 10.0.0.5:21000"));
    }
}

TEST_F(RequestLinesTest, ARefusedStartIsLoggedWithTheRealPeer)
{
    startSlaveFor(*first);
    second->sendFrame(makeRecord(startRequest, {0x0A000005, 21000}));
    ASSERT_TRUE(second->nextOf(startReply));
    EXPECT_EQ(getReasons(), Lines{"refused the start request from " + second->getName() +
                                  ": the slave belongs to master " + first->getName()});
}

TEST_F(RequestLinesTest, ARefusedStopIsLoggedWithTheRealPeer)
{
    startSlaveFor(*first);
    second->sendFrame(makeRecord(stopRequest, {0x0A000005, 21000}));
    ASSERT_TRUE(second->nextOf(stopReply));
    EXPECT_EQ(getReasons(), Lines{"refused the stop request from " + second->getName() +
                                  ": it does not own the slave"});
}

TEST_F(RequestLinesTest, AStopByTheOwnerIsAReason)
{
    startSlaveFor(*first);
    first->send(stopRequest);
    ASSERT_TRUE(first->nextOf(stopReply));
    EXPECT_EQ(getReasons(),
              Lines{"reason for the stop: requested by the owner, from " + first->getName()});
}

TEST_F(RequestLinesTest, AStealIsAReason)
{
    startSlaveFor(*first);
    second->send(stealRequest);
    ASSERT_TRUE(second->nextOf(stealReply));
    EXPECT_EQ(getReasons(),
              Lines{"reason for the stop: stolen by a request from " + second->getName()});
}

TEST_F(RequestLinesTest, LosingTheOwnerIsAReason)
{
    startSlaveFor(*first);
    first->vanish();
    ASSERT_TRUE(log.waitForLine("disconnected from master " + first->getName()));
    tick();
    EXPECT_EQ(getReasons(), Lines{"reason for the stop: the connection to the owner is lost"});
}

TEST_F(RequestLinesTest, TheEndOfTheDaemonIsAReason)
{
    startSlaveFor(*first);
    daemon.reset();
    EXPECT_EQ(getReasons(), Lines{"reason for the stop: the daemon ends"});
}

TEST_F(RequestLinesTest, AHangIsAReason)
{
    daemon.reset();
    startDaemon({.startup = 300, .gracefulStop = 2'000});
    first = introduce();
    slave.play("[run]\nhang");
    first->send(startRequest);
    ASSERT_TRUE(first->nextOf(slaveFailed));
    EXPECT_EQ(getReasons(), Lines{"reason for the stop: the slave hangs"});
}

TEST_F(RequestLinesTest, ReasonsAreNotLoggedWithoutTheDetailFlag)
{
    restartWith(flags::daemonDetail, 0);
    first = introduce();
    startSlaveFor(*first);
    first->send(stopRequest);
    ASSERT_TRUE(first->nextOf(stopReply));
    EXPECT_EQ(getReasons(), Lines{});
}

} // namespace
} // namespace quelta::test
